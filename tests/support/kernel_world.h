// Support for tests that change the sandbox's network: what the kernel says afterwards, and calls that are
// made without rights or without sockets.
#pragma once

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <thread>

#include "sandbox_fixture.h"
#include "utils/Utils.h"

namespace kernel_world {

using namespace fixture;
using Lines = std::vector<std::string>;

/// What a command prints, without blanks at the ends of lines.
inline Lines lines_of(const std::string& command) {
    std::istringstream text(exec((command + " 2>/dev/null").c_str()));
    Lines lines;
    for (std::string line; std::getline(text, line);) {
        lines.push_back(line.substr(0, line.find_last_not_of(' ') + 1));
    }
    return lines;
}

/// What can be taken from a call; the kernel takes it from the calling thread alone.
inline void its_rights() {
    EXPECT_EQ(syscall(SYS_setresuid, 65534, 65534, 65534), 0);
    EXPECT_EQ(prctl(PR_SET_DUMPABLE, 1), 0);  // or it could not look at its own entry in /proc
}
inline void its_sockets() {
    sock_filter steps[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                           BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_socket, 0, 1),
                           BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EMFILE),
                           BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
    const sock_fprog filter{std::size(steps), steps};
    EXPECT_EQ(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter), 0);
}

/// The result and the standard error of a call in a thread of its own that may have lost something.
struct Outcome {
    explicit Outcome(
        const std::function<int()>& call, void (*lose)() = [] {}) {
        testing::internal::CaptureStderr();
        std::thread([&] { lose(), result = call(); }).join();
        err = testing::internal::GetCapturedStderr();
    }
    int result = 1;
    std::string err;
};
inline int without(void (*lose)(), const std::function<int()>& call) {
    return Outcome(call, lose).result;
}

/// Two veth pairs nw0-nw1 and nw2-nw3 that are up and make no addresses of their own.
struct Devices : Frugal {
    void SetUp() override {
        run("set -e; for i in 0 2; do ip link add nw$i type veth peer name nw$((i + 1)); done; "
            "for i in 0 1 2 3; do ip link set nw$i up addrgenmode none; done");
    }
    void TearDown() override { run("ip link del nw0 && ip link del nw2"); }
};

}  // namespace kernel_world

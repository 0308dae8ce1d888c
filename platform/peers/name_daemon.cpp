// Starting, watching and ending dnsmasq.
#include "name_daemon.h"

#include <errno.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <functional>
#include <iostream>
#include <string>
#include <thread>

#include "store.h"

namespace peers {

namespace {

using namespace std::chrono_literals;

constexpr auto kPatience = 10s;
constexpr auto kGlance = 10ms;
constexpr timespec kPause{2, 0};
constexpr const char* kPidPath = "/var/run/network/dnsmasq.pid";

// The addresses may come and go while it runs, hence bind-dynamic. The order of the name servers' file is
// the order in which they are asked. What an interrupted writer left in the directory is passed over.
constexpr const char* kCommand[] = {
    "/usr/sbin/dnsmasq",
    "--keep-in-foreground",
    "--log-facility=-",
    "--pid-file=/var/run/network/dnsmasq.pid",
    "--conf-file=/var/run/network/dnsmasq.listen",
    "--conf-dir=/var/run/network/dnsmasq.d,.tmp",
    "--resolv-file=/var/run/network/resolv.dnsmasq",
    "--strict-order",
    "--bind-dynamic",
    "--listen-address=127.0.0.1",
    nullptr,
};

void tell(const std::string& what) {
    std::cerr << "dnsmasqmgr: " + what + '\n';
}

sigset_t child_signal() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGCHLD);
    return set;
}

// Blocked signals are inherited, and dnsmasq would never hear them.
pid_t spawn() {
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    pid_t pid = 0;
    const int result =
        posix_spawn(&pid, kCommand[0], nullptr, &attributes, const_cast<char* const*>(kCommand), environ);
    posix_spawnattr_destroy(&attributes);
    if (result != 0) {
        throw Refusal(std::string(kCommand[0]) + " cannot be started: " + std::strerror(result));
    }
    return pid;
}

bool within_patience(const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(kGlance);
    }
    return true;
}

// dnsmasq writes it when it has bound its sockets.
pid_t pid_in_file() {
    pid_t pid = 0;
    std::ifstream(kPidPath) >> pid;
    return pid;
}

bool is_dnsmasq(pid_t pid) {
    std::string name;
    std::ifstream("/proc/" + std::to_string(pid) + "/comm") >> name;
    return pid > 0 && name == "dnsmasq";
}

// A manager that was killed could not end its dnsmasq, which holds the port.
void end_left_over() {
    const pid_t pid = pid_in_file();
    if (!is_dnsmasq(pid)) {
        return;
    }
    kill(pid, SIGTERM);
    if (!within_patience([pid] { return !is_dnsmasq(pid); })) {
        kill(pid, SIGKILL);
    }
}

std::string how_it_ended(int status) {
    return WIFSIGNALED(status) ? "dnsmasq was ended by signal " + std::to_string(WTERMSIG(status))
                               : "dnsmasq ended with status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

bool NameDaemon::has_ended() {
    if (pid_ != 0 && waitpid(pid_, &status_, WNOHANG) != 0) {
        pid_ = 0;
    }
    return pid_ == 0;
}

void NameDaemon::end() {
    if (has_ended()) {
        return;
    }
    kill(pid_, SIGTERM);
    if (!within_patience([this] { return has_ended(); })) {
        kill(pid_, SIGKILL);
        waitpid(pid_, &status_, 0);
        pid_ = 0;
    }
}

void NameDaemon::start() {
    end_left_over();
    unlink(kPidPath);
    pid_ = spawn();
    const bool decided = within_patience([this] { return has_ended() || pid_in_file() == pid_; });
    if (!decided) {
        end();
        throw Refusal("dnsmasq did not listen in time");
    }
    if (pid_ == 0) {
        throw Refusal(how_it_ended(status_));
    }
}

void NameDaemon::restart() {
    const std::lock_guard lock(mutex_);
    if (stopped_) {
        throw Refusal("dnsmasq is being stopped");
    }
    end();
    start();
}

void NameDaemon::revive() {
    try {
        start();
        tell("dnsmasq runs again");
    } catch (const Refusal& failure) {
        tell(failure.what());
    }
}

void NameDaemon::supervise() {
    const sigset_t child = child_signal();
    bool running = false;
    while (true) {
        const int signal = running ? sigwaitinfo(&child, nullptr) : sigtimedwait(&child, nullptr, &kPause);
        const std::lock_guard lock(mutex_);
        if (stopped_) {
            return;
        }
        if (pid_ != 0 && has_ended()) {
            tell(how_it_ended(status_));
        } else if (pid_ == 0 && signal < 0 && errno == EAGAIN) {
            revive();
        }
        running = pid_ != 0;
    }
}

void NameDaemon::stop() {
    const std::lock_guard lock(mutex_);
    stopped_ = true;
    end();
    kill(getpid(), SIGCHLD);  // wakes supervise() also where no dnsmasq ran
}

}  // namespace peers

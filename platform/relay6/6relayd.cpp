// 6relayd: lets a LAN share the IPv6 prefix of an uplink. docs/man/6relayd.8 is its manual.
#include <errno.h>
#include <fcntl.h>
#include <linux/capability.h>
#include <net/if.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <iostream>
#include <string>
#include <string_view>

#include "relay.h"

namespace {

using namespace relay6;

constexpr int kMisused = 2;
constexpr const char* kUsage =
    "usage: 6relayd -N | -A UPLINK DOWNLINK   relay neighbour discovery | router advertisements and DHCPv6 "
    "as well\n"
    "       6relayd -C UPLINK DOWNLINK        take away what a relay has left behind\n";

constexpr uid_t kNobody = 65534;

bool write_switch(const std::string& path, const char* value) {
    const Socket file(open(path.c_str(), O_WRONLY | O_CLOEXEC));
    return file && write(file.fd(), value, std::strlen(value)) == static_cast<ssize_t>(std::strlen(value));
}

// The kernel answers for other hosts on a device that forwards only, and by default after a random while.
bool let_kernel_answer(const std::string& ifname) {
    const std::string conf = "/proc/sys/net/ipv6/conf/" + ifname;
    const bool done = write_switch(conf + "/forwarding", "1") && write_switch(conf + "/proxy_ndp", "1") &&
                      write_switch("/proc/sys/net/ipv6/neigh/" + ifname + "/proxy_delay", "0");
    if (!done) {
        std::cerr << "6relayd: the NDP proxy of " + ifname +
                         " cannot be switched on: " + std::strerror(errno) + '\n';
    }
    return done;
}

bool keep_capabilities(std::uint32_t capabilities) {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> sets{};
    sets[0].effective = sets[0].permitted = capabilities;
    return syscall(SYS_capset, &header, sets.data()) == 0;
}

// What strangers send is read with the right to change routes and neighbours, and no other.
bool drop_privileges() {
    constexpr std::uint32_t kNetAdmin = 1U << CAP_NET_ADMIN;
    const bool is_root = geteuid() == 0;
    const bool dropped =
        prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
        (!is_root || (prctl(PR_SET_KEEPCAPS, 1, 0, 0, 0) == 0 && setresgid(kNobody, kNobody, kNobody) == 0 &&
                      setresuid(kNobody, kNobody, kNobody) == 0)) &&
        keep_capabilities(kNetAdmin);
    if (!dropped) {
        std::cerr << std::string("6relayd: privileges cannot be dropped: ") + std::strerror(errno) + '\n';
    }
    return dropped;
}

Socket catch_signals() {
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGTERM);
    sigaddset(&ends, SIGINT);
    sigprocmask(SIG_BLOCK, &ends, nullptr);
    return Socket(signalfd(-1, &ends, SFD_CLOEXEC));
}

int clean(const std::string& uplink, const std::string& downlink) {
    const auto tables = KernelTables::open();
    if (tables == nullptr) {
        return 1;
    }
    // What hung on a device that is gone went with it.
    const unsigned int index = if_nametoindex(downlink.c_str());
    if (index != 0) {
        tables->clean(if_nametoindex(uplink.c_str()), index);
    }
    return 0;
}

int serve(Mode mode, const std::string& uplink, const std::string& downlink) {
    const Socket signals = catch_signals();
    std::array<Port, 2> ports;
    ports[kUp].name = uplink;
    ports[kDown].name = downlink;
    auto tables = KernelTables::open();
    auto events = KernelEvents::open();
    if (!signals || tables == nullptr || events == nullptr || !Relay::open_port(mode, kUp, ports[kUp]) ||
        !Relay::open_port(mode, kDown, ports[kDown]) || !let_kernel_answer(uplink) ||
        !let_kernel_answer(downlink) || !drop_privileges()) {
        return 1;
    }
    tables->clean(ports[kUp].index, ports[kDown].index);
    Relay relay(mode, std::move(ports), std::move(tables), std::move(events));
    const bool asked_to_end = relay.run(signals.fd());
    relay.end();
    return asked_to_end ? 0 : 1;
}

// A name that is a path would lead the switches elsewhere.
bool is_device_name(const std::string& name) {
    return !name.empty() && name.size() < IFNAMSIZ && name.find('/') == std::string::npos && name[0] != '.';
}

}  // namespace

int main(int argc, char** argv) {
    const std::string_view option = argc > 1 ? argv[1] : "";
    if (option == "-h" || option == "--help") {
        std::cout << kUsage;
        return 0;
    }
    const bool known = option == "-N" || option == "-A" || option == "-C";
    if (argc != 4 || !known || !is_device_name(argv[2]) || !is_device_name(argv[3]) ||
        std::strcmp(argv[2], argv[3]) == 0) {
        std::cerr << kUsage;
        return kMisused;
    }
    if (option == "-C") {
        return clean(argv[2], argv[3]);
    }
    return serve(option == "-A" ? Mode::All : Mode::Neighbors, argv[2], argv[3]);
}

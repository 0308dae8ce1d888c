// Kernel primitives against `ip -batch` doing the same, as ratios in one run: N calls in this process, and
// the whole process. Prints a table over a growing number of links, since each query reads the link table
// afresh. Changes the machine's network: run it by scripts/bench, in the sandbox.
#include <arpa/inet.h>
#include <linux/rtnetlink.h>
#include <networkinterface.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

namespace {

constexpr unsigned kAddresses = 200;
constexpr unsigned kRoutes = 200;
constexpr unsigned kBridges = 200;
constexpr unsigned kUplinks = 64;
constexpr RT_ID kTable = 9000;
constexpr const char* kDevice = "bench0";

double seconds(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void check(bool done, const std::string& what) {
    if (!done) {
        fprintf(stderr, "kernel_primitives: %s failed\n", what.c_str());
        exit(1);
    }
}

std::string dotted(unsigned number) {
    return std::to_string(number / 256) + "." + std::to_string(number % 256);
}

std::string named(const char* prefix, unsigned number) {
    return prefix + std::to_string(number);
}

unsigned device_index() {
    return static_cast<unsigned>(get_iface_index(kDevice));
}

/// One change, done N times, and its undoing: by the library, and as a line (or lines) for ip -batch.
struct Operation {
    const char* name;
    unsigned count;
    int rounds;
    int (*apply)(unsigned number, bool add);
    std::string (*batch)(unsigned number, bool add);
};

int change_address(unsigned number, bool add) {
    if (add) {
        return set_ipv4_addr(device_index(), "10.20." + dotted(number) + "/32");
    }
    return number == 0 ? flush_ipv4_addr(device_index()) : 0;
}

std::string batch_address(unsigned number, bool add) {
    return std::string("addr ") + (add ? "add" : "del") + " 10.20." + dotted(number) + "/32 dev " + kDevice +
           "\n";
}

int change_route(unsigned number, bool add) {
    in_addr network{htonl(0x0a640000 + number * 256)};
    return set_route(kTable, AF_INET, &network, 24, nullptr, device_index(), RTPROT_STATIC, RT_SCOPE_UNIVERSE,
                     0, add ? 1 : 0);
}

std::string batch_route(unsigned number, bool add) {
    return std::string("route ") + (add ? "add" : "del") + " 10." + dotted(100 * 256 + number) +
           ".0/24 dev " + kDevice + " table 9000 proto static scope global\n";
}

int change_bridge(unsigned number, bool add) {
    const std::string bridge = named("brb", number);
    const std::string port = named("port", number);
    if (!add) {
        return br_delbr(bridge.c_str());
    }
    const int ret = br_addbr(bridge.c_str());
    return ret != 0 ? ret : br_addif(bridge.c_str(), port.c_str());
}

std::string batch_bridge(unsigned number, bool add) {
    const std::string bridge = named("brb", number);
    if (!add) {
        return "link del " + bridge + "\n";
    }
    return "link add " + bridge + " type bridge\nlink set " + named("port", number) + " master " + bridge +
           "\n";
}

/// An uplink's routes and rules as its set-up writes them; the indexes are those of the ports' devices.
int change_uplink(unsigned number, bool add) {
    const std::string ifname = named("port", number);
    const auto ifindex = static_cast<unsigned>(get_iface_index(ifname.c_str()));
    const std::string network = "10." + std::to_string(200) + "." + std::to_string(number) + ".";
    if (!add) {
        return delete_routerule(ifname.c_str(), static_cast<int>(ifindex), AF_INET);
    }
    const int ret = set_ip4_rule(ifindex, (network + "2").c_str(), RTM_NEWRULE, 1);
    return ret != 0
               ? ret
               : set_ip4_route(ifindex, (network + "2").c_str(), 24, (network + "1").c_str(), RTM_NEWROUTE);
}

std::string batch_uplink(unsigned number, bool add) {
    const std::string ifname = named("port", number);
    const int ifindex = get_iface_index(ifname.c_str());
    const int port = get_port_num(ifname.c_str());
    const std::string table = std::to_string(256 + ifindex);
    const std::string network = "10.200." + std::to_string(number) + ".";
    const auto rule = [&](int slot, const std::string& selector) {
        return std::string("rule ") + (add ? "add" : "del") + " priority " +
               std::to_string(ifindex * 16 + slot) + " " + selector + " table " + table + "\n";
    };
    std::string lines =
        rule(1, "from " + network + "2 fwmark 0/0xf") + rule(2, "oif " + ifname + " fwmark 0/0xf");
    if (port != 0) {
        lines += rule(3, "fwmark " + std::to_string(port + 4096) + "/0x100f") +
                 rule(4, "fwmark " + std::to_string(port + 8192) + "/0x200f");
    }
    if (!add) {
        return lines + "route flush table " + table + "\n";
    }
    return lines + "route add default via " + network + "1 dev " + ifname + " onlink table " + table +
           " proto static mtu lock 1500\nroute add " + network + "0/24 dev " + ifname + " table " + table +
           " proto static\n";
}

constexpr std::array kOperations{
    Operation{"addresses", kAddresses, 3, change_address, batch_address},
    Operation{"routes", kRoutes, 3, change_route, batch_route},
    Operation{"bridges with a port", kBridges, 1, change_bridge, batch_bridge},
    Operation{"uplinks", kUplinks, 3, change_uplink, batch_uplink},
};

void run_ip(const std::string& lines) {
    const std::string path = "/run/bench.batch";
    std::ofstream(path) << lines;
    check(system(("ip -batch " + path).c_str()) == 0, "ip -batch");
}

std::string all_lines(const Operation& operation, bool add) {
    std::string lines;
    for (unsigned number = 0; number < operation.count; ++number) {
        lines += operation.batch(number, add);
    }
    return lines;
}

void apply_all(const Operation& operation, bool add) {
    for (unsigned number = 0; number < operation.count; ++number) {
        check(operation.apply(number, add) == 0, std::string(operation.name) + (add ? " add" : " remove"));
    }
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

/// Ratios to ip -batch of one direction of one operation: N calls in this process, and a whole process.
struct Ratios {
    double calls_seconds;
    double calls;
    double process;
};

Ratios compare(size_t operation_number, bool add, const std::string& self) {
    const Operation& operation = kOperations[operation_number];
    const std::string child =
        self + " child " + std::to_string(operation_number) + (add ? " add" : " remove");
    const auto undo = [&] { apply_all(operation, !add); };
    std::vector<double> ours;
    std::vector<double> process;
    std::vector<double> ip;
    for (int round = 0; round < operation.rounds; ++round) {
        ours.push_back(seconds([&] { apply_all(operation, add); }));
        undo();
        process.push_back(seconds([&] { check(system(child.c_str()) == 0, child); }));
        undo();
        const std::string lines = all_lines(operation, add);
        ip.push_back(seconds([&] { run_ip(lines); }));
        undo();
    }
    return {median(ours), median(ours) / median(ip), median(process) / median(ip)};
}

void add_links(unsigned from, unsigned to) {
    std::string lines;
    for (unsigned number = from; number < to; ++number) {
        lines += "link add " + named("spare", number) + " type bridge\n";
    }
    run_ip(lines);
}

void measure(const std::string& self, unsigned links, std::vector<double>& curve) {
    for (size_t number = 0; number < kOperations.size(); ++number) {
        for (const bool add : {true, false}) {
            if (!add) {
                apply_all(kOperations[number], true);
            }
            const Ratios ratios = compare(number, add, self);
            curve.push_back(ratios.calls_seconds);
            printf("%6u  %-20s %-7s %5u  %9.2f  %9.2f\n", links, kOperations[number].name,
                   add ? "add" : "remove", kOperations[number].count, ratios.calls, ratios.process);
            if (!add) {
                apply_all(kOperations[number], false);
            }
        }
    }
}

/// Ports for the bridges and uplinks: one end of a cable each, up, so that routes may use them.
void make_world() {
    std::string lines = std::string("link add ") + kDevice + " type bridge\nlink set " + kDevice + " up\n";
    for (unsigned number = 0; number < kBridges; ++number) {
        lines += "link add " + named("port", number) + " type veth peer name " + named("far", number) + "\n";
        lines += "link set " + named("far", number) + " up\nlink set " + named("port", number) + " up\n";
    }
    for (unsigned number = 0; number < kUplinks; ++number) {
        lines += "addr add 10.200." + std::to_string(number) + ".2/24 dev " + named("port", number) + "\n";
    }
    run_ip(lines);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 4 && std::string(argv[1]) == "child") {
        apply_all(kOperations[static_cast<size_t>(atoi(argv[2]))], std::string(argv[3]) == "add");
        return 0;
    }
    if (access("/run/network/.sandbox", F_OK) != 0) {
        fprintf(stderr, "kernel_primitives: not in the sandbox; run scripts/bench\n");
        return 2;
    }
    check(freopen("/dev/null", "w", stderr) != nullptr, "standard error");
    make_world();
    check(setvbuf(stdout, nullptr, _IOLBF, 0) == 0, "line buffering");
    printf("Time of ours to that of ip -batch, medians of three rounds (bridges: one). Base: %u links.\n",
           2 * kBridges + 1);
    printf("%6s  %-20s %-7s %5s  %9s  %9s\n", "spare", "operation", "", "N", "N calls", "process");
    std::vector<std::vector<double>> curves;
    const std::vector<unsigned> counts{10, 500, 2000};
    unsigned present = 0;
    for (const unsigned links : counts) {
        add_links(present, links);
        present = links;
        curves.emplace_back();
        measure(argv[0], links, curves.back());
    }
    printf("\nGrowth of N calls from %u to %u spare links, as a factor:\n", counts.front(), counts.back());
    for (size_t row = 0; row < curves.front().size(); ++row) {
        printf("  %-20s %-7s %6.1f\n", kOperations[row / 2].name, row % 2 == 0 ? "add" : "remove",
               curves.back()[row] / curves.front()[row]);
    }
    return 0;
}

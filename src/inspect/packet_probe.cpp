// Sending a packet in a copy, and watching it.
#include "inspect/packet_probe.h"

#include <arpa/inet.h>
#include <linux/netfilter.h>
#include <netinet/ether.h>
#include <netinet/icmp6.h>
#include <netinet/ip_icmp.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <sstream>
#include <stdexcept>

#include "inspect/far_ends.h"
#include "utils/file_io.h"
#include "utils/process.h"

namespace nm {

namespace {

using Clock = std::chrono::steady_clock;
using Counters = std::map<std::string, int64_t>;

constexpr const char* kTracedHooks[] = {"PREROUTING", "OUTPUT"};

/// Lines in pairs: "Ip: NAME..." and "Ip: NUMBER...".
void read_pairs(const char* path, Counters& counters) {
    std::istringstream text(read_file(path).value_or(""));
    for (std::string names, numbers; std::getline(text, names) && std::getline(text, numbers);) {
        std::istringstream name_words(names);
        std::istringstream number_words(numbers);
        std::string group;
        std::string name;
        std::string number;
        name_words >> group;
        number_words >> number;
        while (name_words >> name && number_words >> number) {
            counters[group + name] = strtoll(number.c_str(), nullptr, 10);
        }
    }
}

Counters read_counters() {
    Counters counters;
    read_pairs("/proc/net/snmp", counters);
    read_pairs("/proc/net/netstat", counters);
    std::istringstream text(read_file("/proc/net/snmp6").value_or(""));
    int64_t number = 0;
    for (std::string name; text >> name >> number;) {
        counters[name] = number;
    }
    return counters;
}

/// Those that have grown.
Counters growth(const Counters& before, const Counters& after) {
    Counters grown;
    for (const auto& [name, number] : after) {
        const auto earlier = before.find(name);
        const int64_t difference = number - (earlier == before.end() ? 0 : earlier->second);
        if (difference > 0) {
            grown[name] = difference;
        }
    }
    return grown;
}

/// The rule of the trace for this packet alone. All words are numbers and addresses of ours.
std::string trace_rule(const Flow& flow, const char* hook) {
    std::string rule = flow.family() == AF_INET6 ? "/sbin/ip6tables" : "/sbin/iptables";
    rule += std::string(" -w -t raw -I ") + hook + " -s " + flow.source.text() + " -d " +
            flow.destination.text() + " -p " + std::to_string(flow.protocol);
    if (flow.has_ports()) {
        rule += " --sport " + std::to_string(flow.source_port) + " --dport " +
                std::to_string(flow.destination_port);
    }
    return rule + " -j TRACE >/dev/null 2>&1";
}

bool start_trace(const Flow& flow) {
    return std::all_of(std::begin(kTracedHooks), std::end(kTracedHooks),
                       [&flow](const char* hook) { return system_cmd(trace_rule(flow, hook).c_str()) == 0; });
}

std::string link_address_of(const std::string& device) {
    const std::string text = read_file("/sys/class/net/" + device + "/address").value_or("");
    const ether_addr* const address = ether_aton(text.c_str());
    if (address == nullptr) {
        throw std::runtime_error("the copy of " + device + " has no link address");
    }
    return {reinterpret_cast<const char*>(address->ether_addr_octet), ETH_ALEN};
}

/// An address for a call of a socket.
struct SocketAddress {
    sockaddr_storage storage{};
    socklen_t length;

    SocketAddress(const PacketAddress& address, uint16_t port) {
        auto& ip4 = reinterpret_cast<sockaddr_in&>(storage);
        auto& ip6 = reinterpret_cast<sockaddr_in6&>(storage);
        const bool is_ip6 = address.family == AF_INET6;
        storage.ss_family = static_cast<sa_family_t>(address.family);
        (is_ip6 ? ip6.sin6_port : ip4.sin_port) = htons(port);
        memcpy(is_ip6 ? static_cast<void*>(&ip6.sin6_addr) : &ip4.sin_addr, address.bytes.data(),
               address.size());
        length = is_ip6 ? sizeof(ip6) : sizeof(ip4);
    }
    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage); }
};

int socket_type(const Flow& flow) {
    return flow.protocol == IPPROTO_TCP ? SOCK_STREAM : flow.protocol == IPPROTO_UDP ? SOCK_DGRAM : SOCK_RAW;
}

/// Sends it as a program of the device does. 0 or what the call says; the socket stays open meanwhile.
int send_by_socket(const Flow& flow, FileDescriptor& socket) {
    const SocketAddress source(flow.source, flow.has_ports() ? flow.source_port : uint16_t{0});
    const SocketAddress destination(flow.destination, flow.has_ports() ? flow.destination_port : uint16_t{0});
    socket = FileDescriptor(
        ::socket(flow.family(), socket_type(flow) | SOCK_CLOEXEC | SOCK_NONBLOCK, flow.protocol));
    if (!socket || bind(socket.get(), source.get(), source.length) != 0) {
        throw std::runtime_error(std::string("a program of the device cannot send from there: ") +
                                 strerror(errno));
    }
    const std::string payload = flow.protocol == IPPROTO_UDP ? "" : payload_bytes(flow);
    const bool is_sent =
        flow.protocol == IPPROTO_TCP
            ? connect(socket.get(), destination.get(), destination.length) == 0 || errno == EINPROGRESS
            : sendto(socket.get(), payload.data(), payload.size(), 0, destination.get(),
                     destination.length) >= 0;
    return is_sent ? 0 : errno;
}

/// Whether it is the packet that was sent, whatever has been translated: nothing else of the kind is in the
/// copy, but for what answers it.
bool is_sent_packet(const Flow& sent, const std::string& packet) {
    Flow flow;
    if (!parse_packet(packet, flow) || flow.family() != sent.family() || flow.protocol != sent.protocol) {
        return false;
    }
    const size_t offset = flow.family() == AF_INET6 ? 40 : static_cast<size_t>(packet[0] & 0xf) * 4;
    const auto byte = [&](size_t index) {
        return packet.size() > offset + index ? static_cast<uint8_t>(packet[offset + index]) : 0;
    };
    if (sent.protocol == IPPROTO_TCP) {
        constexpr size_t kFlags = 13;
        return (byte(kFlags) & (TH_SYN | TH_ACK | TH_RST)) == TH_SYN;
    }
    if (sent.protocol == IPPROTO_ICMP || sent.protocol == IPPROTO_ICMPV6) {
        return byte(0) == (sent.family() == AF_INET6 ? int{ICMP6_ECHO_REQUEST} : int{ICMP_ECHO});
    }
    return true;
}

/// Watches until the packet has come out, or was dropped, or nothing has moved for a while.
class Watch {
public:
    Watch(const Flow& flow, Probe& probe) : flow_(flow), probe_(probe), before_(read_counters()) {}
    FarEnds& far() { return far_; }
    PacketTrace& trace() { return trace_; }
    void run();

private:
    bool look();
    bool has_ended() const;

    const Flow& flow_;
    Probe& probe_;
    const Counters before_;
    FarEnds far_;
    PacketTrace trace_;
};

/// Whether something has come.
bool Watch::look() {
    const size_t seen = probe_.events.size();
    const std::vector<Arrival> arrivals = far_.receive();
    for (const Arrival& arrival : arrivals) {
        if (!probe_.has_left && is_sent_packet(flow_, arrival.packet)) {
            probe_.has_left = true;
            probe_.left = arrival.packet;
            probe_.left_cable = arrival.cable;
        }
    }
    if (trace_.is_open() && !trace_.read(probe_.events)) {
        probe_.trace_fault = "some of it was lost";
    }
    return !arrivals.empty() || probe_.events.size() > seen;
}

bool Watch::has_ended() const {
    return probe_.has_left || probe_.send_error != 0 ||
           std::any_of(probe_.events.begin(), probe_.events.end(), [](const TraceEvent& event) {
               return event.kind != TraceKind::Return && event.verdict == NF_DROP;
           });
}

/// What is neither sent nor dropped by a rule ends without a word: in a program, or at a route. The counters
/// tell soon that it has, and on a busy machine the next report may be late.
void Watch::run() {
    constexpr auto kQuiet = std::chrono::milliseconds(150);
    constexpr auto kLongest = std::chrono::seconds(3);
    constexpr int kPause = 10;
    const auto begin = Clock::now();
    auto last = begin;
    while (!has_ended() && Clock::now() - begin < kLongest) {
        std::array<pollfd, 2> sources{pollfd{far_.fd(), POLLIN, 0},
                                      pollfd{trace_.is_open() ? trace_.fd() : -1, POLLIN, 0}};
        (void)poll(sources.data(), sources.size(), kPause);
        last = look() ? Clock::now() : last;
        const bool has_moved = !probe_.events.empty() || !growth(before_, read_counters()).empty();
        if (has_moved && Clock::now() - last > kQuiet) {
            break;
        }
    }
    (void)look();
    probe_.counters = growth(before_, read_counters());
}

}  // namespace

Probe send_packet(const Flow& flow, const Entrance& entrance) {
    Probe probe;
    FileDescriptor socket;
    Watch watch(flow, probe);
    if (!watch.trace().is_open() || !start_trace(flow)) {
        probe.trace_fault = "iptables or the kernel has no trace here (nf_tables is needed)";
    }
    if (entrance.is_local) {
        probe.send_error = send_by_socket(flow, socket);
    } else {
        watch.far().send(entrance.cable_index, entrance.tags, link_address_of(entrance.device),
                         packet_bytes(flow));
    }
    watch.run();
    probe.is_traced = !probe.events.empty();
    return probe;
}

}  // namespace nm

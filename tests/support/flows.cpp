// Single packets between hosts, and who sees them, for comparing a packet's way with what was said of it.
//
//     flows watch NAME                               prints "NAME PROTOCOL SOURCE PORT DESTINATION PORT KIND"
//     of each IP
//                                                    packet that comes to the device eth0
//     flows send SOURCE DESTINATION PROTOCOL SPORT DPORT     the first packet of a connection, from any
//     source flows call SOURCE DESTINATION PROTOCOL SPORT DPORT     the same by a program's socket
//
// PROTOCOL is 1, 6 or 17, by IPv6 58, 6 or 17; KIND is "new" of what opens a connection, else "answer". An
// echo has its identifier in the place of ports, and so has an error that of the packet that it is about.
#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netinet/icmp6.h>
#include <netinet/ip.h>
#include <netinet/ip6.h>
#include <netinet/ip_icmp.h>
#include <netinet/tcp.h>
#include <netinet/udp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

using Bytes = std::string;

uint16_t number_at(const Bytes& bytes, size_t offset) {
    return bytes.size() < offset + 2
               ? 0
               : static_cast<uint16_t>(uint8_t(bytes[offset]) << 8 | uint8_t(bytes[offset + 1]));
}

uint16_t checksum(const Bytes& bytes) {
    uint32_t sum = 0;
    for (size_t i = 0; i < bytes.size(); i += 2) {
        sum += uint32_t(uint8_t(bytes[i])) << 8 | (i + 1 < bytes.size() ? uint8_t(bytes[i + 1]) : 0);
    }
    while (sum >> 16 != 0) {
        sum = (sum & 0xffff) + (sum >> 16);
    }
    return htons(static_cast<uint16_t>(~sum));
}

template <class Header>
Bytes bytes_of(const Header& header) {
    return {reinterpret_cast<const char*>(&header), sizeof(header)};
}

/// An address of either family, as bytes.
struct Host {
    int family;
    Bytes bytes;
    explicit Host(const std::string& text)
        : family(text.find(':') == std::string::npos ? AF_INET : AF_INET6),
          bytes(family == AF_INET ? 4 : 16, 0) {
        inet_pton(family, text.c_str(), bytes.data());
    }
    Host(int given, const Bytes& packet, size_t offset)
        : family(given), bytes(packet.substr(offset, given == AF_INET ? 4 : 16)) {}
    std::string text() const {
        char text[INET6_ADDRSTRLEN] = "";
        inet_ntop(family, bytes.data(), text, sizeof(text));
        return text;
    }
};

struct Flow {
    Host source;
    Host destination;
    int protocol;
    uint16_t sport;
    uint16_t dport;
    bool is_echo() const { return protocol == IPPROTO_ICMP || protocol == IPPROTO_ICMPV6; }
};

Bytes transport(const Flow& flow, uint16_t sum) {
    tcphdr tcp{};
    udphdr udp{};
    icmphdr echo{};
    switch (flow.protocol) {
        case IPPROTO_TCP:
            tcp.source = htons(flow.sport), tcp.dest = htons(flow.dport), tcp.doff = 5, tcp.syn = 1,
            tcp.window = htons(1000), tcp.check = sum;
            return bytes_of(tcp);
        case IPPROTO_UDP:
            udp.source = htons(flow.sport), udp.dest = htons(flow.dport), udp.len = htons(sizeof(udp)),
            udp.check = sum;
            return bytes_of(udp);
        default:
            echo.type = flow.protocol == IPPROTO_ICMP ? int(ICMP_ECHO) : int(ICMP6_ECHO_REQUEST);
            echo.un.echo.id = htons(flow.sport), echo.checksum = sum;
            return bytes_of(echo);
    }
}

Bytes packet_of(const Flow& flow) {
    const Bytes blank = transport(flow, 0);
    Bytes pseudo = flow.protocol == IPPROTO_ICMP ? "" : flow.source.bytes + flow.destination.bytes;
    if (!pseudo.empty()) {
        pseudo += Bytes(1, 0) + char(flow.protocol) + Bytes(1, 0) + char(blank.size());
    }
    const Bytes payload = transport(flow, checksum(pseudo + blank));
    if (flow.source.family == AF_INET6) {
        ip6_hdr header{};
        header.ip6_flow = htonl(6U << 28), header.ip6_plen = htons(uint16_t(payload.size())),
        header.ip6_nxt = uint8_t(flow.protocol), header.ip6_hlim = 64;
        return bytes_of(header).substr(0, 8) + flow.source.bytes + flow.destination.bytes + payload;
    }
    iphdr header{};
    header.version = 4, header.ihl = 5, header.ttl = 64, header.protocol = uint8_t(flow.protocol),
    header.tot_len = htons(uint16_t(20 + payload.size()));
    return bytes_of(header).substr(0, 12) + flow.source.bytes + flow.destination.bytes + payload;
}

struct Address {
    sockaddr_storage storage{};
    socklen_t size;
    Address(const Host& host, uint16_t port)
        : size(host.family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6)) {
        storage.ss_family = sa_family_t(host.family);
        reinterpret_cast<sockaddr_in&>(storage).sin_port = htons(port);
        memcpy(reinterpret_cast<char*>(&storage) + (host.family == AF_INET ? 4 : 8), host.bytes.data(),
               host.bytes.size());
    }
    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage); }
};

int send_raw(const Flow& flow) {
    const int socket = ::socket(flow.source.family, SOCK_RAW, IPPROTO_RAW);
    const Bytes packet = packet_of(flow);
    const Address to(flow.destination, 0);
    return sendto(socket, packet.data(), packet.size(), 0, to.get(), to.size) < 0;
}

int call(const Flow& flow) {
    const int type = flow.protocol == IPPROTO_TCP   ? SOCK_STREAM
                     : flow.protocol == IPPROTO_UDP ? SOCK_DGRAM
                                                    : SOCK_RAW;
    const int socket = ::socket(flow.source.family, type | SOCK_NONBLOCK, flow.protocol);
    const Address from(flow.source, flow.is_echo() ? 0 : flow.sport);
    const Address to(flow.destination, flow.is_echo() ? 0 : flow.dport);
    const Bytes echo = packet_of(flow).substr(flow.source.family == AF_INET ? 20 : 40);
    if (bind(socket, from.get(), from.size) != 0) {
        return 1;
    }
    (void)(type == SOCK_STREAM
               ? connect(socket, to.get(), to.size)
               : int(sendto(socket, echo.data(), type == SOCK_RAW ? echo.size() : 0, 0, to.get(), to.size)));
    usleep(200000);
    return 0;
}

/// The identifier of an echo, or of what an error is about, whose port or identifier comes first.
uint16_t icmp_number(const Bytes& message, int family, bool is_error) {
    const size_t inner = family == AF_INET ? 8 + 20 : 8 + 40;
    const int protocol = message.size() > inner ? message[family == AF_INET ? 8 + 9 : 8 + 6] : 0;
    const bool is_echo = protocol == IPPROTO_ICMP || protocol == IPPROTO_ICMPV6;
    return is_error ? number_at(message, inner + (is_echo ? 4 : 0)) : number_at(message, 4);
}

void print(const char* name, const Bytes& packet) {
    const int family = uint8_t(packet[0]) >> 4 == 6 ? AF_INET6 : AF_INET;
    const size_t offset = family == AF_INET ? size_t(packet[0] & 15) * 4 : 40;
    const int protocol = packet[family == AF_INET ? 9 : 6];
    const Bytes message = packet.substr(std::min(offset, packet.size()));
    const Host source(family, packet, family == AF_INET ? 12 : 8);
    const Host destination(family, packet, family == AF_INET ? 16 : 24);
    const int type = message.empty() ? 0 : uint8_t(message[0]);
    uint16_t ports[2] = {number_at(message, 0), number_at(message, 2)};
    bool is_new = protocol == IPPROTO_UDP ||
                  (message.size() > 13 && (message[13] & (TH_SYN | TH_ACK | TH_RST)) == TH_SYN);
    if (protocol == IPPROTO_ICMP || protocol == IPPROTO_ICMPV6) {
        const bool is_error =
            protocol == IPPROTO_ICMP ? type != ICMP_ECHO && type != ICMP_ECHOREPLY : type < 128;
        is_new = type == (protocol == IPPROTO_ICMP ? int(ICMP_ECHO) : int(ICMP6_ECHO_REQUEST));
        ports[0] = ports[1] = icmp_number(message, family, is_error);
    }
    printf("%s %d %s %d %s %d %s\n", name, protocol, source.text().c_str(), ports[0],
           destination.text().c_str(), ports[1], is_new ? "new" : "answer");
    fflush(stdout);
}

int watch(const char* name) {
    const int socket = ::socket(AF_PACKET, SOCK_DGRAM, htons(ETH_P_ALL));
    Bytes packet(65536, 0);
    for (;;) {
        sockaddr_ll place{};
        socklen_t size = sizeof(place);
        const ssize_t length =
            recvfrom(socket, packet.data(), packet.size(), 0, reinterpret_cast<sockaddr*>(&place), &size);
        const bool is_ip = place.sll_protocol == htons(ETH_P_IP) || place.sll_protocol == htons(ETH_P_IPV6);
        if (length > 0 && is_ip && place.sll_pkttype != PACKET_OUTGOING &&
            place.sll_ifindex == int(if_nametoindex("eth0"))) {
            print(name, packet.substr(0, size_t(length)));
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3) {
        return watch(argv[2]);
    }
    if (argc != 7) {
        return 2;
    }
    const Flow flow{Host(argv[2]), Host(argv[3]), atoi(argv[4]), uint16_t(atoi(argv[5])),
                    uint16_t(atoi(argv[6]))};
    return strcmp(argv[1], "send") == 0 ? send_raw(flow) : call(flow);
}

// Opening, reading and writing the sockets of a relay.
#include "sockets.h"

#include <arpa/inet.h>
#include <errno.h>
#include <linux/filter.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/icmp6.h>
#include <netinet/ip6.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <array>
#include <cstring>
#include <iostream>

#include "dhcp6.h"

namespace relay6 {

namespace {

constexpr int kOn = 1;
constexpr int kHops = 255;
constexpr std::size_t kLongestMessage = 9216;

template <class T>
bool set(const Socket& socket, int level, int option, const T& value) {
    return setsockopt(socket.fd(), level, option, &value, sizeof(value)) == 0;
}

bool bind_to_device(const Socket& socket, const std::string& ifname) {
    return setsockopt(socket.fd(), SOL_SOCKET, SO_BINDTODEVICE, ifname.c_str(),
                      static_cast<socklen_t>(ifname.size())) == 0;
}

Socket checked(Socket socket, bool usable, const char* kind) {
    if (socket && usable) {
        return socket;
    }
    std::cerr << std::string("6relayd: no ") + kind + " socket: " + std::strerror(errno) + '\n';
    return Socket();
}

// Passes IPv6 packets whose payload is a neighbour solicitation or advertisement.
bool filter_neighbor_messages(const Socket& socket) {
    std::array<sock_filter, 7> program{{
        BPF_STMT(BPF_LD | BPF_B | BPF_ABS, offsetof(ip6_hdr, ip6_nxt)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, IPPROTO_ICMPV6, 0, 4),
        BPF_STMT(BPF_LD | BPF_B | BPF_ABS, sizeof(ip6_hdr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, ND_NEIGHBOR_SOLICIT, 1, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, ND_NEIGHBOR_ADVERT, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, UINT16_MAX),
        BPF_STMT(BPF_RET | BPF_K, 0),
    }};
    const sock_fprog filter{program.size(), program.data()};
    return set(socket, SOL_SOCKET, SO_ATTACH_FILTER, filter);
}

bool bind_tap(const Socket& socket, unsigned int ifindex) {
    packet_mreq all{};
    all.mr_ifindex = static_cast<int>(ifindex);
    all.mr_type = PACKET_MR_ALLMULTI;
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_IPV6);
    address.sll_ifindex = static_cast<int>(ifindex);
    return set(socket, SOL_PACKET, PACKET_IGNORE_OUTGOING, kOn) &&
           set(socket, SOL_PACKET, PACKET_ADD_MEMBERSHIP, all) &&
           bind(socket.fd(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
}

// The hop limit with which a message came, from its control data; -1 if it is not there.
int hop_limit_of(msghdr& header) {
    int limit = -1;
    for (cmsghdr* each = CMSG_FIRSTHDR(&header); each != nullptr; each = CMSG_NXTHDR(&header, each)) {
        if (each->cmsg_level == IPPROTO_IPV6 && each->cmsg_type == IPV6_HOPLIMIT) {
            std::memcpy(&limit, CMSG_DATA(each), sizeof(limit));
        }
    }
    return limit;
}

}  // namespace

// The protocol comes with the address to bind to, so that no packet of another device is ever queued.
Socket open_tap(unsigned int ifindex) {
    Socket tap(socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const bool usable = filter_neighbor_messages(tap) && bind_tap(tap, ifindex);
    return checked(std::move(tap), usable, "packet");
}

Socket open_icmp6(const std::string& ifname, std::uint8_t type) {
    Socket icmp(socket(AF_INET6, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_ICMPV6));
    icmp6_filter filter;
    ICMP6_FILTER_SETBLOCKALL(&filter);
    ICMP6_FILTER_SETPASS(type, &filter);
    const bool usable = set(icmp, IPPROTO_ICMPV6, ICMP6_FILTER, filter) && bind_to_device(icmp, ifname) &&
                        set(icmp, IPPROTO_IPV6, IPV6_RECVHOPLIMIT, kOn) &&
                        set(icmp, IPPROTO_IPV6, IPV6_UNICAST_HOPS, kHops) &&
                        set(icmp, IPPROTO_IPV6, IPV6_MULTICAST_HOPS, kHops) &&
                        set(icmp, IPPROTO_IPV6, IPV6_MULTICAST_LOOP, 0);
    return checked(std::move(icmp), usable, "ICMPv6");
}

Socket open_dhcp6(const std::string& ifname) {
    Socket dhcp(socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_in6 any{};
    any.sin6_family = AF_INET6;
    any.sin6_port = htons(kDhcp6ServerPort);
    // The servers of other LANs are bound to all devices: on this one the socket that names it gets the
    // messages.
    const bool usable = set(dhcp, SOL_SOCKET, SO_REUSEADDR, kOn) && bind_to_device(dhcp, ifname) &&
                        set(dhcp, IPPROTO_IPV6, IPV6_RECVHOPLIMIT, kOn) &&
                        set(dhcp, IPPROTO_IPV6, IPV6_MULTICAST_LOOP, 0) &&
                        bind(dhcp.fd(), reinterpret_cast<sockaddr*>(&any), sizeof(any)) == 0;
    return checked(std::move(dhcp), usable, "DHCPv6");
}

bool join(const Socket& socket, unsigned int ifindex, const in6_addr& group) {
    ipv6_mreq request{};
    request.ipv6mr_interface = ifindex;
    request.ipv6mr_multiaddr = group;
    return set(socket, IPPROTO_IPV6, IPV6_JOIN_GROUP, request);
}

std::optional<LinkMessage> receive(const Socket& socket) {
    LinkMessage message{Bytes(kLongestMessage), {}, -1};
    sockaddr_in6 from{};
    alignas(cmsghdr) char control[256];
    iovec part{message.bytes.data(), message.bytes.size()};
    msghdr header{};
    header.msg_name = &from;
    header.msg_namelen = sizeof(from);
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    header.msg_control = control;
    header.msg_controllen = sizeof(control);
    const ssize_t size = recvmsg(socket.fd(), &header, 0);
    if (size < 0 || (header.msg_flags & MSG_TRUNC) != 0) {
        return std::nullopt;
    }
    message.bytes.resize(static_cast<std::size_t>(size));
    message.source = from.sin6_addr;
    message.hop_limit = hop_limit_of(header);
    return message;
}

bool send_to(const Socket& socket, unsigned int ifindex, const in6_addr& to, std::uint16_t port,
             const Bytes& message) {
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(port);
    address.sin6_addr = to;
    address.sin6_scope_id = ifindex;
    return sendto(socket.fd(), message.data(), message.size(), 0, reinterpret_cast<sockaddr*>(&address),
                  sizeof(address)) >= 0;
}

std::optional<Mac> link_address(const Socket& socket, const std::string& ifname) {
    ifreq request{};
    ifname.copy(request.ifr_name, IFNAMSIZ - 1);
    if (ioctl(socket.fd(), SIOCGIFHWADDR, &request) != 0 || request.ifr_hwaddr.sa_family != ARPHRD_ETHER) {
        return std::nullopt;
    }
    Mac mac;
    std::memcpy(mac.data(), request.ifr_hwaddr.sa_data, mac.size());
    return mac;
}

in6_addr address_of(const char* text) {
    in6_addr address{};
    (void)inet_pton(AF_INET6, text, &address);  // the program's own text
    return address;
}

}  // namespace relay6

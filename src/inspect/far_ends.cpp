// Frames at the far ends.
#include "inspect/far_ends.h"

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netinet/icmp6.h>
#include <netinet/if_ether.h>
#include <netinet/ip6.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "inspect/packet_flow.h"
#include "inspect/rehearsal_place.h"

namespace nm {

namespace {

constexpr size_t kMostFrame = 65536;
constexpr size_t kTagSize = 4;

void require(bool is_done, const char* what) {
    if (!is_done) {
        throw std::runtime_error(std::string(what) + ": " + strerror(errno));
    }
}

/// A socket belongs to the network that it was made in.
FileDescriptor open_in_far_network() {
    const FileDescriptor here = FileDescriptor::open("/proc/self/ns/net", O_RDONLY);
    const FileDescriptor far =
        FileDescriptor::open((std::string("/run/netns/") + kFarNamespace).c_str(), O_RDONLY);
    require(here && far && setns(far.get(), CLONE_NEWNET) == 0, "cannot reach the far ends");
    FileDescriptor socket(::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, htons(ETH_P_ALL)));
    require(setns(here.get(), CLONE_NEWNET) == 0, "cannot come back from the far ends");
    require(bool(socket), "the far ends cannot listen");
    return socket;
}

std::string two_bytes(uint32_t value) {
    const uint16_t bytes = htons(static_cast<uint16_t>(value));
    return {reinterpret_cast<const char*>(&bytes), sizeof(bytes)};
}

template <class Header>
bool take(const std::string& bytes, size_t offset, Header& header) {
    if (bytes.size() < offset + sizeof(header)) {
        return false;
    }
    memcpy(&header, bytes.data() + offset, sizeof(header));
    return true;
}

template <class Header>
std::string bytes_of(const Header& header) {
    return {reinterpret_cast<const char*>(&header), sizeof(header)};
}

/// The tag of a frame's VLAN, which the kernel hands out beside the frame: the protocol and the VLAN.
uint32_t tag_beside(msghdr& message) {
    tpacket_auxdata extra{};
    for (const cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr;
         part = CMSG_NXTHDR(&message, const_cast<cmsghdr*>(part))) {
        if (part->cmsg_level == SOL_PACKET && part->cmsg_type == PACKET_AUXDATA) {
            memcpy(&extra, CMSG_DATA(part), sizeof(extra));
        }
    }
    const bool has_tag = (extra.tp_status & TP_STATUS_VLAN_VALID) != 0;
    const uint32_t protocol =
        (extra.tp_status & TP_STATUS_VLAN_TPID_VALID) != 0 ? extra.tp_vlan_tpid : uint32_t{ETH_P_8021Q};
    return has_tag ? protocol << 16 | extra.tp_vlan_tci : 0;
}

}  // namespace

struct FarEnds::Frame {
    int index = 0;
    std::string tags;   ///< as they stand in a frame
    std::string from;   ///< link address
    uint16_t type = 0;  ///< of the payload
    std::string payload;
};

FarEnds::FarEnds() : socket_(open_in_far_network()) {
    const int on = 1;
    const int room = 8 << 20;
    require(setsockopt(fd(), SOL_PACKET, PACKET_AUXDATA, &on, sizeof(on)) == 0, "the far ends cannot listen");
    (void)setsockopt(fd(), SOL_SOCKET, SO_RCVBUFFORCE, &room,
                     sizeof(room));  // what is there otherwise may do
}

int FarEnds::index_of(uint32_t cable) const {
    ifreq request{};
    (void)snprintf(request.ifr_name, sizeof(request.ifr_name), "p%u", cable);
    require(ioctl(fd(), SIOCGIFINDEX, &request) == 0, "the device has no cable");
    return request.ifr_ifindex;
}

uint32_t FarEnds::cable_of(int index) const {
    ifreq request{};
    request.ifr_ifindex = index;
    return ioctl(fd(), SIOCGIFNAME, &request) == 0 && request.ifr_name[0] == 'p'
               ? static_cast<uint32_t>(strtoul(request.ifr_name + 1, nullptr, 10))
               : 0;
}

std::string FarEnds::link_address(int index) const {
    ifreq request{};
    request.ifr_ifindex = index;
    require(ioctl(fd(), SIOCGIFNAME, &request) == 0 && ioctl(fd(), SIOCGIFHWADDR, &request) == 0,
            "a far end has no address");
    return {request.ifr_hwaddr.sa_data, ETH_ALEN};
}

void FarEnds::send(uint32_t cable, const std::vector<uint32_t>& tags, const std::string& to,
                   const std::string& packet) {
    const int index = index_of(cable);
    const bool is_ip6 = static_cast<uint8_t>(packet[0]) >> 4 == 6;
    std::string frame = to + link_address(index);
    for (const uint32_t tag : tags) {
        frame += two_bytes(tag >> 16) + two_bytes(tag);
    }
    frame += two_bytes(is_ip6 ? ETH_P_IPV6 : ETH_P_IP) + packet;
    sockaddr_ll place{};
    place.sll_family = AF_PACKET;
    place.sll_ifindex = index;
    require(sendto(fd(), frame.data(), frame.size(), 0, reinterpret_cast<const sockaddr*>(&place),
                   sizeof(place)) == static_cast<ssize_t>(frame.size()),
            "the far end cannot send");
}

/// Frames of our own come as well, and are none.
bool FarEnds::receive_frame(Frame& frame) {
    std::string bytes(kMostFrame, '\0');
    std::array<char, 256> control{};
    sockaddr_ll place{};
    iovec part{bytes.data(), bytes.size()};
    msghdr message{&place, sizeof(place), &part, 1, control.data(), control.size(), 0};
    const ssize_t length = recvmsg(fd(), &message, 0);
    if (length < 0) {
        return false;
    }
    frame = Frame();
    if (length < ETHER_HDR_LEN || place.sll_pkttype == PACKET_OUTGOING) {
        return true;
    }
    const uint32_t tag = tag_beside(message);
    frame.index = place.sll_ifindex;
    frame.from = bytes.substr(ETH_ALEN, ETH_ALEN);
    frame.tags = tag == 0 ? "" : two_bytes(tag >> 16) + two_bytes(tag);
    size_t type = size_t{2} * ETH_ALEN;
    uint16_t number = 0;
    while (take(bytes, type, number) && (ntohs(number) == ETH_P_8021Q || ntohs(number) == ETH_P_8021AD)) {
        frame.tags += bytes.substr(type, kTagSize);
        type += kTagSize;
    }
    frame.type = ntohs(number);
    frame.payload = bytes.substr(type + sizeof(number), static_cast<size_t>(length) - type - sizeof(number));
    return true;
}

void FarEnds::reply(const Frame& frame, const std::string& link_address, const std::string& payload) {
    const std::string bytes = frame.from + link_address + frame.tags + two_bytes(frame.type) + payload;
    sockaddr_ll place{};
    place.sll_family = AF_PACKET;
    place.sll_ifindex = frame.index;
    // Who gets no answer asks again.
    (void)sendto(fd(), bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&place),
                 sizeof(place));
}

/// A probe for a double comes from nobody (RFC 5227).
void FarEnds::answer_arp(const Frame& frame) {
    ether_arp question{};
    const in_addr_t nobody = 0;
    if (!take(frame.payload, 0, question) || ntohs(question.arp_op) != ARPOP_REQUEST ||
        memcmp(question.arp_spa, &nobody, sizeof(nobody)) == 0) {
        return;
    }
    const std::string own = link_address(frame.index);
    ether_arp answer = question;
    answer.arp_op = htons(ARPOP_REPLY);
    memcpy(answer.arp_sha, own.data(), ETH_ALEN);
    memcpy(answer.arp_spa, question.arp_tpa, sizeof(answer.arp_spa));
    memcpy(answer.arp_tha, question.arp_sha, ETH_ALEN);
    memcpy(answer.arp_tpa, question.arp_spa, sizeof(answer.arp_tpa));
    reply(frame, own, bytes_of(answer));
}

/// Section 7.2 of RFC 4861.
void FarEnds::answer_solicitation(const Frame& frame) {
    constexpr uint8_t kLinkHops = 255;
    ip6_hdr header{};
    nd_neighbor_solicit question{};
    if (!take(frame.payload, 0, header) || header.ip6_nxt != IPPROTO_ICMPV6 ||
        !take(frame.payload, sizeof(header), question) || question.nd_ns_type != ND_NEIGHBOR_SOLICIT ||
        IN6_IS_ADDR_UNSPECIFIED(&header.ip6_src)) {
        return;
    }
    const std::string own = link_address(frame.index);
    nd_neighbor_advert answer{};
    answer.nd_na_type = ND_NEIGHBOR_ADVERT;
    answer.nd_na_flags_reserved = ND_NA_FLAG_SOLICITED | ND_NA_FLAG_OVERRIDE;
    answer.nd_na_target = question.nd_ns_target;
    const nd_opt_hdr option{ND_OPT_TARGET_LINKADDR, 1};
    PacketAddress source{AF_INET6, {}};
    PacketAddress destination{AF_INET6, {}};
    memcpy(source.bytes.data(), &question.nd_ns_target, source.size());
    memcpy(destination.bytes.data(), &header.ip6_src, destination.size());
    answer.nd_na_cksum = icmp6_checksum(source, destination, bytes_of(answer) + bytes_of(option) + own);
    const std::string message = bytes_of(answer) + bytes_of(option) + own;
    ip6_hdr back = header;
    back.ip6_plen = htons(static_cast<uint16_t>(message.size()));
    back.ip6_hlim = kLinkHops;
    back.ip6_src = question.nd_ns_target;
    back.ip6_dst = header.ip6_src;
    reply(frame, own, bytes_of(back) + message);
}

std::vector<Arrival> FarEnds::receive() {
    std::vector<Arrival> arrivals;
    for (Frame frame; receive_frame(frame);) {
        if (frame.type == ETH_P_ARP) {
            answer_arp(frame);
        }
        if (frame.type == ETH_P_IPV6) {
            answer_solicitation(frame);
        }
        if (frame.type == ETH_P_IP || frame.type == ETH_P_IPV6) {
            arrivals.push_back({cable_of(frame.index), frame.payload});
        }
    }
    return arrivals;
}

}  // namespace nm

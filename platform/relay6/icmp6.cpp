// Reading and writing messages of neighbour discovery.
#include "icmp6.h"

#include <arpa/inet.h>
#include <netinet/icmp6.h>
#include <netinet/ip6.h>

#include <cstring>

namespace relay6 {

namespace {

constexpr std::size_t kOptionUnit = 8;
constexpr std::uint8_t kHopLimit = 255;
constexpr std::uint32_t kLeastMtu = 1280;
constexpr std::uint8_t kProxyFlag = 0x04;
constexpr unsigned int kBitsOfAddress = 128;
constexpr unsigned int kBitsOfByte = 8;

// Of RFC 3971: what a router signs is no longer true of what is relayed.
enum SecureOption : std::uint8_t { kCga = 11, kRsaSignature = 12, kTimestamp = 13, kNonce = 14 };

std::uint32_t sum_words(const std::uint8_t* bytes, std::size_t size, std::uint32_t sum) {
    for (std::size_t i = 0; i + 1 < size; i += 2) {
        sum += static_cast<std::uint32_t>(bytes[i] << kBitsOfByte | bytes[i + 1]);
    }
    return size % 2 == 0 ? sum : sum + static_cast<std::uint32_t>(bytes[size - 1] << kBitsOfByte);
}

// RFC 4443, section 2.3. A packet is at most 64 KiB, so that the sum cannot overflow.
bool checksum_holds(const ip6_hdr& header, const std::uint8_t* message, std::size_t size) {
    std::uint32_t sum = sum_words(header.ip6_src.s6_addr, 2 * sizeof(in6_addr), 0);
    sum = sum_words(message, size, sum + static_cast<std::uint32_t>(size) + IPPROTO_ICMPV6);
    while (sum > UINT16_MAX) {
        sum = (sum & UINT16_MAX) + (sum >> 16U);
    }
    return sum == UINT16_MAX;
}

struct Option {
    std::uint8_t type;
    const std::uint8_t* bytes;
    std::size_t size;
};

// Cuts a list of options into its parts. False if one has no length or is longer than what is there.
bool read_options(const std::uint8_t* bytes, std::size_t size, std::vector<Option>& options) {
    while (size > 0) {
        const std::size_t length = size < 2 ? 0 : bytes[1] * kOptionUnit;
        if (length == 0 || length > size) {
            return false;
        }
        options.push_back({bytes[0], bytes, length});
        bytes += length;
        size -= length;
    }
    return true;
}

template <class T>
T read_as(const std::uint8_t* bytes) {
    T value;
    std::memcpy(&value, bytes, sizeof(value));
    return value;
}

void append(Bytes& bytes, const void* begin, std::size_t size) {
    const std::size_t at = bytes.size();
    bytes.resize(at + size);
    std::memcpy(bytes.data() + at, begin, size);
}

void append_link_address(Bytes& bytes, std::uint8_t type, const Mac& mac) {
    const std::uint8_t head[] = {type, 1};
    append(bytes, head, sizeof(head));
    append(bytes, mac.data(), mac.size());
}

// RFC 4862, section 5.5.3: a host ignores the prefix of a link, and one that is preferred for longer than it
// is valid.
bool is_useful_prefix(const Option& option, std::vector<Prefix>& prefixes) {
    if (option.size != sizeof(nd_opt_prefix_info)) {
        return false;
    }
    const auto info = read_as<nd_opt_prefix_info>(option.bytes);
    if (info.nd_opt_pi_prefix_len > kBitsOfAddress || !is_routable(info.nd_opt_pi_prefix) ||
        ntohl(info.nd_opt_pi_preferred_time) > ntohl(info.nd_opt_pi_valid_time)) {
        return false;
    }
    if (info.nd_opt_pi_valid_time != 0) {
        prefixes.push_back({info.nd_opt_pi_prefix, info.nd_opt_pi_prefix_len});
    }
    return true;
}

bool is_useful_mtu(const Option& option) {
    return option.size == sizeof(nd_opt_mtu) &&
           ntohl(read_as<nd_opt_mtu>(option.bytes).nd_opt_mtu_mtu) >= kLeastMtu;
}

bool goes_on(const Option& option, std::vector<Prefix>& prefixes) {
    switch (option.type) {
        case ND_OPT_SOURCE_LINKADDR:
        case kCga:
        case kRsaSignature:
        case kTimestamp:
        case kNonce:
            return false;
        case ND_OPT_PREFIX_INFORMATION:
            return is_useful_prefix(option, prefixes);
        case ND_OPT_MTU:
            return is_useful_mtu(option);
        default:
            return true;
    }
}

}  // namespace

bool operator==(const in6_addr& left, const in6_addr& right) {
    return std::memcmp(&left, &right, sizeof(left)) == 0;
}

bool AddressOrder::operator()(const in6_addr& left, const in6_addr& right) const {
    return std::memcmp(&left, &right, sizeof(left)) < 0;
}

std::string spelled(const in6_addr& address) {
    char text[INET6_ADDRSTRLEN];
    return inet_ntop(AF_INET6, &address, text, sizeof(text));
}

bool contains(const Prefix& prefix, const in6_addr& address) {
    const std::size_t whole = prefix.length / kBitsOfByte;
    const unsigned int rest = prefix.length % kBitsOfByte;
    if (std::memcmp(&prefix.address, &address, whole) != 0) {
        return false;
    }
    const unsigned int difference = rest == 0 ? 0 : prefix.address.s6_addr[whole] ^ address.s6_addr[whole];
    return difference >> (kBitsOfByte - rest) == 0;
}

bool is_routable(const in6_addr& address) {
    return !IN6_IS_ADDR_MULTICAST(&address) && !IN6_IS_ADDR_LINKLOCAL(&address) && address.s6_addr[0] != 0;
}

std::optional<NeighborMessage> read_neighbor_message(const std::uint8_t* packet, std::size_t size) {
    // A solicitation and an advertisement are alike up to the target.
    constexpr std::size_t kLeast = sizeof(nd_neighbor_solicit);
    if (size < sizeof(ip6_hdr) + kLeast) {
        return std::nullopt;
    }
    const auto header = read_as<ip6_hdr>(packet);
    const std::uint8_t* message = packet + sizeof(header);
    const std::size_t length = ntohs(header.ip6_plen);
    if (header.ip6_nxt != IPPROTO_ICMPV6 || header.ip6_hlim != kHopLimit || length < kLeast ||
        length > size - sizeof(header) || !checksum_holds(header, message, length)) {
        return std::nullopt;
    }
    const auto body = read_as<nd_neighbor_solicit>(message);
    const bool solicitation = body.nd_ns_type == ND_NEIGHBOR_SOLICIT;
    std::vector<Option> options;
    if ((!solicitation && body.nd_ns_type != ND_NEIGHBOR_ADVERT) || body.nd_ns_code != 0 ||
        IN6_IS_ADDR_MULTICAST(&body.nd_ns_target) ||
        !read_options(message + kLeast, length - kLeast, options)) {
        return std::nullopt;
    }
    return NeighborMessage{solicitation, header.ip6_src, body.nd_ns_target};
}

Bytes neighbor_advertisement(const in6_addr& target, const Mac& mac, bool solicited) {
    nd_neighbor_advert head{};
    head.nd_na_type = ND_NEIGHBOR_ADVERT;
    head.nd_na_flags_reserved = ND_NA_FLAG_ROUTER | (solicited ? ND_NA_FLAG_SOLICITED : 0U);
    head.nd_na_target = target;
    Bytes message;
    append(message, &head, sizeof(head));
    append_link_address(message, ND_OPT_TARGET_LINKADDR, mac);
    return message;
}

std::optional<RelayedAdvertisement> relay_advertisement(const std::uint8_t* message, std::size_t size,
                                                        const Mac& mac) {
    nd_router_advert head;
    if (size < sizeof(head)) {
        return std::nullopt;
    }
    head = read_as<nd_router_advert>(message);
    std::vector<Option> options;
    if (head.nd_ra_type != ND_ROUTER_ADVERT || head.nd_ra_code != 0 ||
        (head.nd_ra_flags_reserved & kProxyFlag) != 0 ||
        !read_options(message + sizeof(head), size - sizeof(head), options)) {
        return std::nullopt;
    }
    head.nd_ra_flags_reserved |= kProxyFlag;
    head.nd_ra_cksum = 0;
    RelayedAdvertisement relayed;
    append(relayed.message, &head, sizeof(head));
    for (const Option& option : options) {
        if (goes_on(option, relayed.prefixes)) {
            append(relayed.message, option.bytes, option.size);
        }
    }
    append_link_address(relayed.message, ND_OPT_SOURCE_LINKADDR, mac);
    return relayed;
}

void end_router_lifetime(Bytes& message) {
    const std::uint16_t none = 0;
    std::memcpy(message.data() + offsetof(nd_router_advert, nd_ra_router_lifetime), &none, sizeof(none));
}

Bytes router_solicitation() {
    nd_router_solicit head{};
    head.nd_rs_type = ND_ROUTER_SOLICIT;
    Bytes message;
    append(message, &head, sizeof(head));
    return message;
}

bool is_router_solicitation(const Bytes& message) {
    constexpr std::size_t kHead = sizeof(nd_router_solicit);
    std::vector<Option> options;
    return message.size() >= kHead && message[0] == ND_ROUTER_SOLICIT && message[1] == 0 &&
           read_options(message.data() + kHead, message.size() - kHead, options);
}

}  // namespace relay6

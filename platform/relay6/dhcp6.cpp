// The two ways of a DHCPv6 message through a relay agent.
#include "dhcp6.h"

#include <arpa/inet.h>

#include <cstring>
#include <set>

namespace relay6 {

namespace {

enum MessageType : std::uint8_t {
    kAdvertise = 2,
    kReply = 7,
    kReconfigure = 10,
    kRelayForward = 12,
    kRelayReply = 13
};
enum OptionCode : std::uint16_t { kRelayMessage = 9, kInterfaceId = 18 };

constexpr std::uint8_t kHopLimit = 8;
constexpr std::size_t kAddressSize = sizeof(in6_addr);
// Type, count of hops, address of the link, address of the peer.
constexpr std::size_t kRelayHeader = 2 + 2 * kAddressSize;
constexpr std::size_t kOptionHeader = 4;
constexpr std::size_t kLeastMessage = 4;
constexpr unsigned int kByte = 8;

void append_word(Bytes& bytes, std::size_t word) {
    bytes.push_back(static_cast<std::uint8_t>(word >> kByte));
    bytes.push_back(static_cast<std::uint8_t>(word));
}

void append_option(Bytes& bytes, std::uint16_t code, const std::uint8_t* value, std::size_t size) {
    append_word(bytes, code);
    append_word(bytes, size);
    bytes.insert(bytes.end(), value, value + size);
}

void append_address(Bytes& bytes, const in6_addr& address) {
    bytes.insert(bytes.end(), address.s6_addr, address.s6_addr + kAddressSize);
}

bool goes_to_servers(std::uint8_t type) {
    return type != kAdvertise && type != kReply && type != kReconfigure && type != kRelayReply && type != 0;
}

struct Options {
    std::optional<Bytes> relayed;
    std::optional<std::string> ifname;
};

// False if an option is longer than what is there.
bool read_options(const Bytes& message, Options& options) {
    std::size_t at = kRelayHeader;
    while (at < message.size()) {
        if (message.size() - at < kOptionHeader) {
            return false;
        }
        const unsigned int code = static_cast<unsigned int>(message[at] << kByte | message[at + 1]);
        const std::size_t size = static_cast<std::size_t>(message[at + 2] << kByte | message[at + 3]);
        const auto begin = message.begin() + static_cast<std::ptrdiff_t>(at + kOptionHeader);
        if (message.size() - at - kOptionHeader < size) {
            return false;
        }
        const auto end = begin + static_cast<std::ptrdiff_t>(size);
        if (code == kRelayMessage) {
            options.relayed = Bytes(begin, end);
        } else if (code == kInterfaceId) {
            options.ifname = std::string(begin, end);
        }
        at += kOptionHeader + size;
    }
    return true;
}

}  // namespace

std::optional<Bytes> wrap_dhcp6(const Bytes& message, const in6_addr& sender, const in6_addr& link,
                                const std::string& ifname) {
    if (message.size() < kLeastMessage || message.size() > UINT16_MAX - kRelayHeader ||
        !goes_to_servers(message[0])) {
        return std::nullopt;
    }
    const bool from_relay = message[0] == kRelayForward;
    if (from_relay && (message.size() < kRelayHeader || message[1] >= kHopLimit)) {
        return std::nullopt;
    }
    // The address of a relay that is not of the link alone says where it is.
    const bool known = from_relay && is_routable(sender);
    Bytes wrapped{kRelayForward, static_cast<std::uint8_t>(from_relay ? message[1] + 1 : 0)};
    append_address(wrapped, known ? in6addr_any : link);
    append_address(wrapped, sender);
    append_option(wrapped, kInterfaceId, reinterpret_cast<const std::uint8_t*>(ifname.data()), ifname.size());
    append_option(wrapped, kRelayMessage, message.data(), message.size());
    return wrapped;
}

std::optional<Dhcp6Delivery> unwrap_dhcp6(const Bytes& message, const std::string& ifname) {
    Options options;
    if (message.size() < kRelayHeader || message[0] != kRelayReply || !read_options(message, options) ||
        !options.relayed || options.relayed->size() < kLeastMessage || options.ifname != ifname) {
        return std::nullopt;
    }
    Dhcp6Delivery delivery{std::move(*options.relayed), {}, kDhcp6ClientPort};
    std::memcpy(&delivery.to, message.data() + kRelayHeader - kAddressSize, kAddressSize);
    if (delivery.message[0] == kRelayReply) {
        delivery.port = kDhcp6ServerPort;
    }
    if (!IN6_IS_ADDR_LINKLOCAL(&delivery.to) && !is_routable(delivery.to)) {
        return std::nullopt;
    }
    return delivery;
}

}  // namespace relay6

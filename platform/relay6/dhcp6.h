// Wrapping and unwrapping of DHCPv6 messages by a relay agent (RFC 8415, section 19). Debian's relay agent
// does not fit here: it wants a global address on the side of its clients, which a relayed LAN does not have,
// and it shares its port with the DHCPv6 servers of other LANs, so that answers to it get lost.
#pragma once

#include <netinet/in.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "icmp6.h"

namespace relay6 {

constexpr std::uint16_t kDhcp6ClientPort = 546;
constexpr std::uint16_t kDhcp6ServerPort = 547;

/// The message as it goes to the server: with the sender's address, one of the sender's link (unspecified if
/// there is none), and the name of the device it came in by. Empty for what no client or relay sends to a
/// server, what has passed too many relays, and what would be longer than its own length can say.
std::optional<Bytes> wrap_dhcp6(const Bytes& message, const in6_addr& sender, const in6_addr& link,
                                const std::string& ifname);

/// What a server has for somebody behind this device.
struct Dhcp6Delivery {
    Bytes message;
    in6_addr to;
    std::uint16_t port;
};

/// Empty unless the message is whole, for this device, and for an address of its link.
std::optional<Dhcp6Delivery> unwrap_dhcp6(const Bytes& message, const std::string& ifname);

}  // namespace relay6

// Messages of neighbour discovery (RFC 4861) as they come from a network that nobody vouches for: what is not
// whole and valid is not looked at. No function here touches a socket.
#pragma once

#include <netinet/in.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace relay6 {

using Mac = std::array<std::uint8_t, 6>;
using Bytes = std::vector<std::uint8_t>;

struct Prefix {
    in6_addr address;
    unsigned int length;
};

bool operator==(const in6_addr& left, const in6_addr& right);

struct AddressOrder {
    bool operator()(const in6_addr& left, const in6_addr& right) const;
};

/// The address in its canonical spelling.
std::string spelled(const in6_addr& address);

bool contains(const Prefix& prefix, const in6_addr& address);

/// Whether a host may have it as the address by which others reach it: global or unique local unicast.
bool is_routable(const in6_addr& address);

/// What a neighbour solicitation asks for, or a neighbour advertisement is about.
struct NeighborMessage {
    bool solicitation;
    in6_addr source;  ///< unspecified while the sender makes sure that nobody has the address yet
    in6_addr target;
};

/// Reads a packet that begins with its IPv6 header. Empty for anything but a neighbour solicitation or
/// advertisement that section 7.1 of RFC 4861 lets pass: hop limit 255, checksum, code 0, lengths, a target
/// that is no multicast.
std::optional<NeighborMessage> read_neighbor_message(const std::uint8_t* packet, std::size_t size);

/// The answer of a router that has `target` on its other side, from its ICMPv6 header on, without a checksum.
/// `solicited` marks the answer to an address; one to all hosts is not.
Bytes neighbor_advertisement(const in6_addr& target, const Mac& mac, bool solicited);

/// A router advertisement as it goes on to the other side, and the prefixes that it announces there.
struct RelayedAdvertisement {
    Bytes message;
    std::vector<Prefix> prefixes;
};

/// Turns the ICMPv6 message of a router, of which hop limit and source address are known to be fine, into
/// ours: with our link-layer address in place of its own, marked as relayed (RFC 4389, section 4.1.3.3),
/// without signatures, which no longer hold, and without prefixes and MTUs that hosts would have to ignore.
/// Everything else stays as it is. Empty if section 6.1.2 of RFC 4861 rejects it, or if another relay has
/// already marked it: then there is a loop.
std::optional<RelayedAdvertisement> relay_advertisement(const std::uint8_t* message, std::size_t size,
                                                        const Mac& mac);

/// Takes back what the relayed advertisement says about the router itself: it is one no more.
void end_router_lifetime(Bytes& message);

/// A solicitation of routers that says nothing about the sender.
Bytes router_solicitation();

/// Whether section 6.1.1 of RFC 4861 lets the ICMPv6 message of a host pass.
bool is_router_solicitation(const Bytes& message);

}  // namespace relay6

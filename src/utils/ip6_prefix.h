// IPv6 prefixes as text, and an address cut at its prefixes, so that it can move to another delegated prefix
// and keep its subnet and interface ID (general unicast addresses: RFC 4291, 2.5.4).
//
//     2001:db8:1:1234::1/64 in the delegated prefix 2001:db8:1::/48
//         routing prefix 2001:db8:1::, subnet ID 1234, interface ID ::1, network prefix 2001:db8:1:1234::
//
// Common codes: NM_ERR_NULL_ARG; NM_ERR_BAD_IP for a text that is no address; NM_ERR_BAD_PREFIX for a length
// above 128 and for parts that do not fit together. Outputs are set on success only.
#pragma once

#include <string>
#include <vector>

#pragma GCC visibility push(default)

/// An address and the two prefixes that it lies in, that of its LAN and that of the delegation.
struct IP6_ADDR_OBJ {
    /// The address cut to the LAN's prefix length.
    std::string network_prefix;
    /// The delegated prefix, without host bits.
    std::string routing_prefix;
    /// The last 16-bit words of the network prefix in hexadecimal, from the first one on that lies behind the
    /// routing prefix as a whole.
    std::vector<std::string> subnet_id;
    /// All other bits behind the routing prefix, as an address: those of the host, and those of the word that
    /// the routing prefix ends in.
    std::string interface_id;
    unsigned char routing_prefix_len = 0;
    unsigned char prefix_len = 0;
};

/// The text of the address with all bits behind `prefix` cleared; empty for null, for a text that is no
/// address and for a prefix above 128.
std::string get_ip6_prefix_addr(const char* addr, unsigned char prefix);

/// Cuts `addr` at the LAN's length `prefix` and at that of `routing`, the delegated prefix as
/// "<address>/<length>". NM_ERR_BAD_PREFIX also for an address outside of `routing`.
int cast_ip6_addr_to_obj(std::string addr, unsigned char prefix, std::string routing, IP6_ADDR_OBJ* obj);

/// Puts the address together again: the routing prefix and what lies behind it, at the place that it had.
/// NM_ERR_BAD_PREFIX if the routing prefix has become so long that it would cut the subnet ID.
int cast_ip6_obj_to_addr(IP6_ADDR_OBJ* obj, std::string& addr);

#pragma GCC visibility pop

namespace nm {

/// Splits "<address>/<length>" into the address without host bits and the length, 0 to 128. 0; NM_ERR_BAD_IP;
/// NM_ERR_BAD_PREFIX.
int split_ip6_prefix(const std::string& text, std::string& prefix, unsigned char& length);

}  // namespace nm

// IP addresses as text and as numbers: checks, masks and prefixes. IPv4 addresses are in network order.
#pragma once

#include <netinet/in.h>

#include <string>

#pragma GCC visibility push(default)

/// Whether the text is an address of the family, without prefix or zone.
bool is_valid_ip(const char* ip);
bool is_valid_ip6(const char* ip);

/// 0, or NM_ERR_BAD_IP: text with "." must be IPv4, else text with ":" IPv6.
int check_ip_correctness(const std::string& ip);

/// Inside 127.0.0.0/8.
bool is_loop_back(in_addr& address);

/// Inside 169.254.0.0/16.
bool is_local_ip(in_addr& address);

/// The number of set bits, gaps included ("255.0.255.0" gives 16). Null: NM_ERR_NULL_ARG;
/// no address: NM_ERR_BAD_IP.
int mask_to_prefix(const char* mask);

/// The mask of a prefix from 1 to 32 in network order; any other prefix: -1, which is also the mask of
/// a prefix of 32.
int prefix_to_network(unsigned char prefix);

/// Writes the text of `ip & mask` to `out`, a buffer of 16 bytes. Null: NM_ERR_NULL_ARG;
/// no address: NM_ERR_BAD_IP.
int network_addr(char* ip, char* mask, char* out);

/// Whether `ip` lies in the network, its first and last address included. The texts must be addresses.
bool is_ip_in_netaddr(std::string ip, std::string network, std::string mask);

/// The prefix length of a mask: its leading 0xff bytes, then the bits of the next one down to the last
/// that is set.
int ip6_masklen(in6_addr mask);

/// The network part of `*in`; all zero for a prefix outside 0 to 128 or for null. `in` may be `&out`.
void get_ip6_subnet(in6_addr& out, in6_addr* in, int prefix);

#pragma GCC visibility pop

namespace nm {

/// Whether a device can have the address as its own: none of 0.0.0.0/8 ("this network", RFC 1122), of the
/// loopback, of multicast, and of what is reserved above it.
bool is_device_address(const in_addr& address);

/// The same for the text of an IPv6 address: none of ::/8 (unspecified, loopback, mapped IPv4; RFC 4291), of
/// link-local scope, and of multicast. False for text that is no address.
bool is_device_address6(const std::string& text);

/// The link-local address that the kernel makes from a hardware address of six bytes (modified EUI-64: RFC
/// 4291, appendix A).
in6_addr link_local_address(const unsigned char* mac);

}  // namespace nm

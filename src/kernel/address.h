// Addresses on devices: reading, adding and flushing them.
//
// A device is named by its index unless stated. Every call reads the kernel afresh by a socket of its own.
// Nothing here takes a lock: a caller that needs a sequence undisturbed holds the interface's lock.
//
// Codes where nothing else is said: NM_ERR_SOCKET and NM_ERR_NL_CONNECT when the kernel can't be reached,
// NM_ERR_NOMEM when its addresses can't be read. An address that is missing is not a failure.
#pragma once

#include <string>

#pragma GCC visibility push(default)

/// Stores the first IPv4 address of the device (its own end where it has a peer) as "a.b.c.d/prefix"; a
/// prefix of the whole address (32) is left out. A device without an address leaves `out` as it is.
int get_ipv4_addr(unsigned int ifindex, std::string& out);

/// The same for IPv6: the first address that is not of link scope (rtnetlink(7), RT_SCOPE_LINK) ...
int get_ipv6_addr(unsigned int ifindex, std::string& out);

/// ... and the first that is.
int get_ipv6_link_addr(unsigned int ifindex, std::string& out);

/// Adds an address, given as text with prefix; an address that the device has already is not an error.
/// Without a prefix the whole address is meant. NM_ERR_BAD_IP for text that is not an address of the family;
/// NM_ERR_IOCTL if the kernel refuses (no such device, prefix too long, no right).
int set_ipv4_addr(unsigned int ifindex, std::string addr);

/// The same for IPv6, with a scope of rtnetlink(7) (0 universe, 253 link). The kernel goes by what the
/// address itself says.
int set_ipv6_addr(unsigned int ifindex, std::string& addr, int scope);

/// Deletes all IPv4 addresses of the device. Stops at the first that the kernel refuses to delete:
/// NM_ERR_IOCTL. Secondary addresses that go along with their primary one are no refusal.
int flush_ipv4_addr(unsigned int ifindex);

/// The same for the IPv6 addresses of universe scope; link-local ones stay.
int flush_ipv6_addr(unsigned int ifindex);

/// The flush by name, `family` AF_INET (all addresses) or AF_INET6 (universe scope). Goes on after a refusal,
/// which is reported on standard error only: 0 all the same, also for a name without a device. NM_ERR_NL_ARG
/// for null; NM_ERR_NL_SOCKET instead of NM_ERR_SOCKET.
int flush_ipaddr(const char* ifname, int family);

/// Appends to `names`, blank-separated, the device of every address of this scope ("global", "link", ...;
/// rtnl_str2scope()) and family ("inet", "inet6", ...; nl_str2af()); a device with several such addresses
/// is named once for each. The caller clears `names` first and makes it large enough for all names.
/// 1 if `names` holds any name, 0 if not; NM_ERR_NULL_ARG; NM_ERR_NOMEM; NM_ERR_SOCKET (no connection).
int get_interface_with_address(const char* scope, const char* family, char* names);

#pragma GCC visibility pop

namespace nm {

/// Whether `address`, a text with a prefix unless the whole address is meant, is the one address that a flush
/// of the family (AF_INET, AF_INET6) would delete, and is as set_ipv4_addr() or set_ipv6_addr() leaves it:
/// for ever, with no peer, and not found to be a duplicate or still examined for one. False also where the
/// kernel cannot be asked.
bool has_only_address(unsigned int ifindex, int family, const std::string& address);

}  // namespace nm

// What this host's interfaces are called and which addresses they have.
#pragma once

#include <string>
#include <vector>

#pragma GCC visibility push(default)

/// The addresses of the family (AF_INET or AF_INET6) on the interface, or on all if `ifname` is empty,
/// each followed by "/" and the prefix length if `with_prefix`. IPv6 addresses that begin with 0xfe
/// (link-local) are left out. Empty on failure and for null.
std::vector<std::string> listAddresses(const char* ifname, unsigned short family, bool with_prefix);

/// The names of the interfaces that begin with `pattern`; null: empty.
std::vector<std::string> search_iface_name(const char* pattern);

/// Whether the kernel has IPv6 at all.
bool is_global_ipv6_enable();

#pragma GCC visibility pop

// Members of ipsets, as the kernel lists them (linux/netfilter/ipset/ip_set.h).
#pragma once

#include <string>

namespace nm {

/// Whether the set, or one of those in it if it is a list, has exactly this member: an address or a network,
/// with "," and a device where the set's type has one. A wider network does not count, nor does a member that
/// runs out, is an exception, or has anything else that adding it anew would change. False if the set cannot
/// be read.
bool has_member(const std::string& set, const std::string& member);

}  // namespace nm

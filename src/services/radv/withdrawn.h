// Prefixes that a LAN does not advertise any more and that its clients may still hold. They are advertised
// with both lifetimes 0 until the last client has forgotten them, so that no client goes on using them (RFC
// 9096, section 3.3; a client gives such a prefix two hours at most, RFC 4862, section 5.5.3).
//
//     /var/run/network/ipv6/<ifname>.withdrawn    "<prefix>/<length> <AdvAutonomous> <until>" a line
//
// `until` is in seconds since boot (CLOCK_BOOTTIME). Nobody wakes up for it: a prefix goes with the first
// change of the LAN after that.
#pragma once

#include <string>

namespace nm {

/// Takes what `block`, the interface's old block, advertises into its list. `prefix`, as
/// "<prefix>/<length>", is what it advertises from now on, empty for nothing: that one leaves the list. A
/// list that cannot be kept is logged.
void keep_withdrawn(const std::string& ifname, const std::string& block, const std::string& prefix);

/// The statements of the listed prefixes for the interface's new block.
std::string withdrawn_text(const std::string& ifname);

}  // namespace nm

// A LAN's entry in the device document when its uplink is delegated another prefix: what lies in the old
// prefix moves to the same place in the new one.
#pragma once

#include <json/value.h>

#include <string>

namespace nm {

/// Whether the entry is of a LAN that is numbered from the prefix that the port `uplink` is delegated.
bool is_delegated_lan(const Json::Value& entry, const std::string& uplink);

/// Moves `IP6_ADDR` to the delegated prefix ("<prefix>/<length>"), and with it those addresses of the DHCPv6
/// range and of the name servers that lie in the old one; `IP6_PD_PREFIX` names the new one. An entry without
/// `IP6_PD_PREFIX` has been given no prefix yet: the last bits of its address, behind the length of the new
/// prefix, are its place there. One that lies in `prefix` already stays as it is. 0, or the codes of
/// cast_ip6_addr_to_obj() and cast_ip6_obj_to_addr(), with the entry untouched.
int renumber_lan(const std::string& prefix, Json::Value& entry);

}  // namespace nm

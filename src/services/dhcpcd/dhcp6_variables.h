// The variables of a DHCPv6 lease as dhcpcd prints them, as JSON.
#pragma once

#include <json/json.h>

#include <string>

namespace nm {

/// Adds to `status`, an object with the empty members of dhcpcd_iface_dhcp6_status(), what the lines of
/// `text` say, `name='value'` each. The values come from the network.
void read_dhcp6_variables(const std::string& text, Json::Value& status);

}  // namespace nm

// What port and interface names tell by their form.
#pragma once

#include <json/value.h>

#include <string>

namespace nm {

/// The number behind "PORT" in a port's name, 0 if there is none.
int port_index(const std::string& portname);

/// The key of the entry of a `*_PORT` section that `ifname` belongs to: the one whose `INTERFACE` the name
/// begins with (a name with a suffix still matches), the longest if several do ("swdev10.5" is of swdev10,
/// not of swdev1). Empty if there is none.
std::string find_port_of_ifname(const Json::Value& ports, const std::string& ifname);

/// The id of the WAN record `info` of `ifname`: its own `ID`, without one the number of its port.
int wan_id_of(const Json::Value& root, const Json::Value& info, const std::string& ifname);

/// `name` as PPPoE traffic runs on it.
std::string ppp_ifname(const std::string& name);

/// The device below a name that PPPoE traffic runs on; any other name as it is.
std::string device_of(const std::string& ifname);

}  // namespace nm

// The names of an interface's DHCP server and relay: units, files, and the lock that guards all of them.
#pragma once

#include <string>

#include "utils/unit_names.h"

namespace nm {

constexpr const char* kDhcpDirectory = "/etc/networkmanagement/dhcp/";
constexpr const char* kDhcpLock = "dhcpservice";

inline std::string dhcp_server_conf(const std::string& ifname) {
    return std::string(kDhcpDirectory) + "dhcpd_" + ifname + ".conf";
}

inline std::string dhcp_relay_env(const std::string& ifname) {
    return std::string(kDhcpDirectory) + "dhcrelay_" + ifname;
}

inline std::string dhcp_lease_file(const std::string& ifname) {
    return "/var/lib/dhcpd/dhcpd_" + ifname + ".leases";
}

}  // namespace nm

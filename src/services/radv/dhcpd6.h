// The DHCPv6 server of one LAN interface: a record becomes the daemon's file, and the unit nm-dhcpd6@<ifname>
// runs on it.
//
//     /etc/networkmanagement/dhcp6/dhcpd6_<ifname>.conf       what the server reads (dhcpd.conf(5))
//     /var/lib/dhcpd6/dhcpd6_<ifname>.leases, and with "~"    its leases, and their backup
//
// A file is replaced in one step, so that a failure leaves the old one whole. Values are data: one that could
// end a statement of the daemon's file is refused.
#pragma once

#include <cstdint>
#include <string>

#pragma GCC visibility push(default)

/// What a server is to hand out.
struct dhcpd6_iface {
    std::string ifname;
    bool managed = false;     // addresses from range_start to range_end; else options only (RFC 8415, 6.1)
    std::string dns;          // name servers, separated by ", "
    uint32_t lease_time = 0;  // seconds, 300 to 2592000
    std::string prefix;       // of the subnet, without host bits
    uint8_t prefix_len = 0;
    std::string range_start;
    std::string range_end;
};

/// Checks the record, writes the server's file, and creates an empty lease file if there is none. 0;
/// NM_ERR_NULL_ARG; NM_ERR_NO_IFACE without a name; NM_ERR_BAD_FORMAT for a lease time out of bounds or a
/// value that could leave its statement; NM_ERR_EMPTY for a managed record without both ends of the range;
/// NM_ERR_BAD_PREFIX for a range outside of the prefix; NM_ERR_OPEN; NM_ERR_WRITE; the codes of the lock.
int dhcpd6_iface_set(const dhcpd6_iface* iface);

/// Removes the server's file, its leases and their backup, those that exist. 0, or -1 at the first that
/// cannot be removed, which leaves the rest.
int dhcpd6_iface_unset(std::string ifname);

/// Whether the server's file exists, and its lease file.
bool dhcpd6_iface_cfg_exist(std::string ifname);
bool dhcpd6_iface_lease_exist(std::string ifname);

/// The unit. The codes of service_start() and service_stop(); without the server's file nothing is stopped:
/// 0.
int dhcpd6_service_start(std::string ifname);
int dhcpd6_service_stop(std::string ifname);

#pragma GCC visibility pop

// The IPv6 DHCP client of an uplink: dhcpcd, one unit `nm-dhcpcd@<ifname>` for each interface. All of them
// read one configuration, /etc/dhcpcd.conf, which is assembled from a fixed head and a block per interface
// (/etc/networkmanagement/<ifname>.dhcpcd.conf; dhcpcd.conf(5)).
//
// Nothing here holds a lock when it returns: a block is written under the lock of its name, the assembled
// file under flock(1) on itself. The caller holds the lock of the interface. A name that no block can be made
// of (empty, or with characters that mean something to a shell or a path) gives NM_ERR_BAD_FORMAT.
#pragma once

#include <json/json.h>

#include <cstdint>
#include <string>

#pragma GCC visibility push(default)

/// What the client of one interface is to do. Each flag stands for the line of its name in the block.
struct dhcpcd_iface {
    char ifname[16];     ///< the interface
    char hw_ifname[16];  ///< the interface whose MAC gives the IAID (RFC 8415, section 12)
    int32_t metric;      ///< of its routes; 0 leaves it to the client
    bool inform6;
    bool nogateway;
    bool noipv4;
    bool noipv6;
    bool noarp;
    bool nolink;
    bool noipv6rs;  ///< no router solicitations, and no association for an address
    bool nodhcp6;
    bool ia_pd;  ///< ask for a delegated prefix
    bool ia_na;  ///< ask for an address; without it, addresses come from router advertisements
};

/// Writes the block of the interface; the client sees it from its next start on. 0; NM_ERR_NULL_ARG; the code
/// of get_raw_mac_addr(), with the old block left as it is; the code of writeValue().
int dhcpcd_iface_set(const dhcpcd_iface* iface);

/// Removes the block and assembles the configuration without it. 0, also if there was no block;
/// NM_ERR_NO_IFACE for an empty name; otherwise the exit code of the shell line, or NM_ERR_SERVICE.
int dhcpcd_iface_unset(std::string ifname);

/// 1 if the client keeps a lease of the family (2 is IPv4, 10 is IPv6), else 0; 0 for any other family.
int dhcpcd_iface_leased(std::string ifname, unsigned char family);

/// Deletes the lease of the family. 0, also if there is none; -1 if it can't be deleted.
int dhcpcd_iface_unleased(std::string ifname, unsigned char family);

/// Assembles the configuration and starts the client anew, to rebind or to renew its lease. 0; the exit code
/// of the shell line, with the client left alone; the code of service_restart().
int dhcpcd_iface_rebind(std::string ifname);
int dhcpcd_iface_renew(std::string ifname);

/// Assembles the configuration and stops the client, which gives its lease back or keeps it for the next
/// start. 0; the exit code of the shell line, with the client left running; the code of service_stop(). In
/// every case the kernel makes the link-local addresses of the interface from its MAC again ("eui64").
int dhcpcd_iface_release(std::string ifname);
int dhcpcd_iface_exit(std::string ifname);

/// Replaces `status` by what the running client knows:
///   {"ifname": .., "dhcp6_server_id": .., "dhcp6_name_servers": [..],
///    "ia_na": {"<n>": {"iaid": .., "address": .., "pltime": .., "vltime": ..}, ..},
///    "ia_pd": {"<n>": {"iaid": .., "prefix": .., "length": .., "pltime": .., "vltime": ..}, ..}}
/// Values are texts as the server gave them, not checked; the server's DUID ends with the quotation mark that
/// the client closes it with. Of several addresses or prefixes of one association the last counts. 0, also
/// for an interface that no client runs on: all members are empty then.
int dhcpcd_iface_dhcp6_status(std::string ifname, Json::Value& status);

#pragma GCC visibility pop

/// The unit of the interface, anew or to its end, with the variable that says how. Codes of service_restart()
/// and service_stop().
int dhcpcd_iface_service_start(std::string ifname, const char* env);
int dhcpcd_iface_service_stop(std::string ifname, const char* env);

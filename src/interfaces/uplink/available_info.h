// Status of the uplinks: what each configured port has in force, for whoever follows the uplinks (NAT, static
// routes, downlinks that relay) and for reports.
//
// As JSON a record is an object; addresses are texts, empty where there is none:
//
//     {"ID": 1, "PORT_NAME": "PORT1", "INTERFACE": "swdev1", "IFNAME": "ppp-swdev1", "IFINDEX": 12, "UP":
//     true,
//      "IP4_TYPE": "PPPOE", "IP4_ADDR": "198.51.100.7", "IP4_PREFIX": 32, "IP4_GW": "198.51.100.1",
//      "IP6_TYPE": "DISABLED", "IP6_ADDR": "", "IP6_PREFIX": 0, "IP6_GW": ""}
//
// A comprehensive record has "IP4_DNS" and "IP6_DNS" too, arrays of addresses.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "interfaces/uplink/BaseWanIfaceInfo.h"
#include "interfaces/uplink/UplinkKind.h"

#pragma GCC visibility push(default)

/// One family's addressing in force.
struct available_address {
    /// Configured type ("DHCP", "DHCPV6", ...).
    std::string type;
    /// The interface's first address and its prefix length; empty and 0 if it has none.
    std::string addr;
    int prefix = 0;
    /// The configured gateway, or that of the lease or session as long as the interface has an address.
    std::string gw;
    /// Name servers, the configured ones or those of the lease or session; in comprehensive records only.
    std::vector<std::string> dns;
};

/// One uplink.
struct available_base_wan_status {
    /// Id of the uplink, and the key of its port ("PORT1").
    int id = 0;
    std::string portname;
    /// The port's device, by which documents and locks call it, and the interface that the traffic runs on;
    /// they differ on PPPoE ("swdev1", "ppp-swdev1").
    std::string interface;
    std::string ifname;
    /// Index of `ifname`, 0 while it does not exist, and whether it is up: its session on PPPoE, else its
    /// link (is_iface_up()).
    int ifindex = 0;
    bool up = false;
    available_address ip4;
    available_address ip6;
};

/// The records of all interfaces of `WAN_IFACE_INFO` in the document at `path`, in key order, into `wans`;
/// name servers are left out if `comprehensive` is 0. A port that cannot be built is logged and has no
/// record. 0, or the code of reading the document, with `wans` untouched.
int get_available_wan_info(std::vector<available_base_wan_status>& wans, std::string path, int comprehensive);

/// The same for `PRIVATE_IFACE_INFO` and `RGLINK_IFACE_INFO`.
int get_available_private_info(std::vector<available_base_wan_status>& ports, std::string path,
                               int comprehensive);
int get_available_rglink_info(std::vector<available_base_wan_status>& links, std::string path,
                              int comprehensive);

#pragma GCC visibility pop

namespace nm {

/// Whether an interface has its link.
using LinkQuestion = bool (*)(const std::string& ifname);

/// The record of one uplink. What the kernel says is of the moment when `info` was built. Without `has_link`
/// it is is_iface_up() that is asked.
available_base_wan_status uplink_status(BaseWanIfaceInfo& info, bool comprehensive);
available_base_wan_status uplink_status(BaseWanIfaceInfo& info, bool comprehensive, LinkQuestion has_link);

/// The records of a kind in a document that has been read, from `path`.
std::vector<available_base_wan_status> uplinks_of(const Json::Value& document, const std::string& path,
                                                  const UplinkKind& kind, bool comprehensive,
                                                  LinkQuestion has_link);

/// The array of records that reports answer with.
Json::Value status_json(const std::vector<available_base_wan_status>& records, bool comprehensive);

}  // namespace nm

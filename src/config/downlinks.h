// Downlinks: the LANs that have their IPv6 from an uplink. Which they are follows from the device document
// alone, so both sides can ask: an uplink that changes, and a LAN that follows it.
#pragma once

#include <string>
#include <vector>

#pragma GCC visibility push(default)

/// One LAN, as its entry in `LAN_IFACE_INFO` says.
struct ipv6_downlink {
    std::string ifname;
    unsigned int ifindex = 0;  ///< 0 while the interface does not exist
    std::string ip6_type;      ///< "STATIC", "RELAY" or "DISABLED"
    std::string ip6_addr;      ///< without a prefix; may be empty for a relay
    int ip6_prefix = 0;        ///< of the address, in bits
};

/// The LANs of the document at `path` that number their clients and name the port `uplink` ("PORT1") as
/// `IP6_UPLINK`: those with an `IP6_ADDR` and an `IP6_SERVICE_TYPE` other than "DISABLED". Replaces `list`,
/// which is in key order. 0, or the code of json_file_to_mem(), with `list` untouched.
int get_all_ipv6_radvd_downlink(std::string uplink, std::string path, std::vector<ipv6_downlink>& list);

/// The same for the LANs of the `IP6_TYPE` "RELAY", whose clients are numbered by the uplink's provider. A
/// relay with an address and a service is in both lists.
int get_all_ipv6_relay_downlink(std::string uplink, std::string path, std::vector<ipv6_downlink>& list);

#pragma GCC visibility pop

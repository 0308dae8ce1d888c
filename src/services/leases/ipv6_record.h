// The record of an uplink's IPv6, /var/run/network/ipv6/<ifname>.json, by the name of the port's device: what
// its provider has given it, for whoever comes later (a setup, a LAN that is numbered from it, a report). It
// is there as long as the DHCPv6 or SLAAC client of the port is meant to run. All values are texts:
//
//     {"iface_index": "12", "curr_metric": "3",
//      "curr_ip": "2001:db8::7", "curr_prefix_length": "64", "curr_gateway": "fe80::1",
//      "curr_pd_prfx": "2001:db8:100::", "curr_pd_prfx_len": "56",
//      "pdInfo": [{"prefix": "2001:db8:100::", "length": "56", "pltime": "3600", "vltime": "7200"}]}
//
// `iface_index` is the index of the interface that the traffic runs on and `curr_metric` the priority of the
// port; what the provider has not given is empty. `pdInfo` has all delegated prefixes with their preferred
// and valid lifetimes in seconds (RFC 8415, section 21.22), the first of which is the current one.
#pragma once

#include <json/value.h>

#include <string>

namespace nm {

/// Reads the record of the port with the device `ifname`. 0; NM_ERR_NOT_FOUND if it has none;
/// NM_ERR_BAD_FORMAT for a name that is none; NM_ERR_PARSE for what is not an object. `record` is replaced on
/// success only. Takes no lock: a record is replaced in one step.
int read_ipv6_record(const std::string& ifname, Json::Value& record);

/// Replaces it, under the lock of the file's name. 0; NM_ERR_BAD_FORMAT; the codes of the lock; NM_ERR_OPEN;
/// NM_ERR_WRITE.
int write_ipv6_record(const std::string& ifname, const Json::Value& record);

/// Removes it. 0, also if there is none; NM_ERR_BAD_FORMAT; NM_ERR_WRITE if it stays.
int remove_ipv6_record(const std::string& ifname);

/// The delegated prefixes of the record, an array that is empty without any.
Json::Value delegated_prefixes(const std::string& ifname);

}  // namespace nm

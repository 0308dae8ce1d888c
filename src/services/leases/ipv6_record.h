// The record of an uplink's IPv6, /var/run/network/ipv6/<ifname>.json, by the name of the port's device: what
// its provider has given it, for whoever comes later (an event, a LAN that is numbered from it, a report). It
// is there as long as the DHCPv6 or SLAAC client of the port is meant to run. All values are texts:
//
//     {"iface_index": "12", "curr_metric": "3", "type": "DHCPV6", "path": "/etc/networkmanagement/new.json",
//      "curr_ip": "2001:db8::7", "curr_prefix_length": "64", "curr_gateway": "fe80::1",
//      "curr_pd_prfx": "2001:db8:100::", "curr_pd_prfx_len": "56", "dns": ["2001:db8::53"],
//      "pdInfo": [{"prefix": "2001:db8:100::", "length": "56", "pltime": "3600", "vltime": "7200"}],
//      "dhcp6": {..}, "ra": {..}, "in_force": {..}}
//
// `iface_index` is the index of the interface that the traffic runs on, `curr_metric` the priority of the
// port, `type` its configured type, and `path` the document that asked for the client. What the provider has
// not given is empty. `pdInfo` has all delegated prefixes with their preferred and valid lifetimes in seconds
// (RFC 8415, section 21.22), the first of which is the current one. `dhcp6` and `ra` are what either protocol
// brought (services/dhcpcd/client_report.h), and `in_force` is what of it the device has been set up with,
// with `skipped`, the list of the LANs that do not follow it yet, since they or the port were in use.
#pragma once

#include <json/value.h>

#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

namespace nm {

/// Reads the record of the port with the device `ifname`. 0; NM_ERR_NOT_FOUND if it has none;
/// NM_ERR_BAD_FORMAT for a name that is none; NM_ERR_PARSE for what is not an object. `record` is replaced on
/// success only. Takes no lock: a record is replaced in one step.
int read_ipv6_record(const std::string& ifname, Json::Value& record);

/// Replaces it, under the lock of the file's name. 0; NM_ERR_BAD_FORMAT; the codes of the lock; NM_ERR_OPEN;
/// NM_ERR_WRITE.
int write_ipv6_record(const std::string& ifname, const Json::Value& record);

/// Changes it by `change`, which says whether there is anything to write, undisturbed by other writers. 0;
/// NM_ERR_NOT_FOUND without a record, which is not made; otherwise the codes of reading and writing.
int change_ipv6_record(const std::string& ifname, const std::function<bool(Json::Value& record)>& change);

/// Removes it, under the same lock. 0, also if there is none; NM_ERR_BAD_FORMAT; the codes of the lock;
/// NM_ERR_WRITE if it stays.
int remove_ipv6_record(const std::string& ifname);

/// What of a record is in force on the device: the keys of its address, and those of its delegated prefix.
using Ipv6RecordKeys = std::initializer_list<const char*>;
inline constexpr Ipv6RecordKeys kAddressKeys = {"curr_ip", "curr_prefix_length", "curr_gateway", "dns"};
inline constexpr Ipv6RecordKeys kDelegationKeys = {"curr_pd_prfx", "curr_pd_prfx_len"};
bool is_in_force(const Json::Value& record, const Ipv6RecordKeys& keys);

/// Notes that the values which `done` has for the keys are in force now. Codes as change_ipv6_record().
int mark_in_force(const std::string& ifname, const Json::Value& done, const Ipv6RecordKeys& keys);

/// The LANs that were skipped when the port, or one of them, was set up.
std::vector<std::string> skipped_downlinks(const Json::Value& record);

/// Takes the names `done` from that list and adds those of `skipped`. Codes as change_ipv6_record().
int note_downlinks(const std::string& ifname, const std::vector<std::string>& done,
                   const std::vector<std::string>& skipped);

/// The address that the device has been set up with last, empty for none.
std::string address_in_force(const Json::Value& record);

/// The delegated prefixes of the record, an array that is empty without any.
Json::Value delegated_prefixes(const std::string& ifname);

}  // namespace nm

// What the DHCPv6 and SLAAC client of an uplink reports to its hook (dhcpcd-run-hooks(8)), taken into the
// uplink's record (services/leases/ipv6_record.h).
//
// DHCPv6 and router advertisements come in reports of their own, and each says all that its protocol has
// brought at that moment. The record keeps the two apart, as "dhcp6" and "ra", and puts together from both
// what is current: the address of a lease before one that was made from an advertised prefix; the prefix
// length of the link that it lies on (an address of a lease has none of its own); the first router that wants
// to be a default router.
#pragma once

#include <json/value.h>

#include <functional>
#include <string>

namespace nm {

/// A variable of the report, empty for one that is not there. The values come from the network: what is not
/// an address, a prefix or a number counts as absent, and of all lists the first members alone count.
using ReportVariable = std::function<std::string(const std::string& name)>;

/// Takes a report into `record`. False, with the record as it was, for a report that is about neither.
bool take_client_report(const ReportVariable& variable, Json::Value& record);

}  // namespace nm

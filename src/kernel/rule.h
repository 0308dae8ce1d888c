// Single rules of the kernel's routing policy: which table serves which packets (ip-rule(8)).
//
// The family is AF_INET or AF_INET6. A `table` of 0 deletes the rule of that priority (and selector) instead
// of adding one; a rule that exists is added once more. Every call has its own socket; what went wrong is
// reported on standard error. Codes of all but del_rules_by_rt(): NM_ERR_BAD_FORMAT for priority 0 or another
// family; NM_ERR_NOMEM; NM_ERR_NL_CONNECT; NM_ERR_NL_RULE_ADD; NM_ERR_NL_RULE_DELETE, also for a rule that
// does not exist.
#pragma once

#include "kernel/route_table.h"

#pragma GCC visibility push(default)

/// Packets from `addr` (4 or 16 raw bytes; null: from anywhere). Prefix 0 means this one address. With
/// `mark` the rule serves only packets whose mark assigns them to no uplink. NM_ERR_BAD_FORMAT also for a
/// prefix beyond the family's length.
int set_rule_by_src(unsigned int priority, unsigned char family, void* addr, unsigned char prefix,
                    RT_ID table, int mark);

/// Packets of sockets bound to the device `name`; `mark` as above. NM_ERR_BAD_FORMAT also for a null name.
int set_rule_by_oif(unsigned int priority, unsigned char family, const char* name, RT_ID table, int mark);

/// Packets that answer destination-NAT traffic of the uplink with this port number.
int set_rule_dnat(unsigned int priority, unsigned char family, int port, RT_ID table);

/// Packets from LAN that are assigned to the uplink with this port number.
int set_rule_lan2wan(unsigned int priority, unsigned char family, int port, RT_ID table);

/// All packets, IPv4 and IPv6. Both families are worked; the first failure is the result.
int set_rule_table(unsigned int priority, RT_ID table);

/// Deletes all rules of the family that lead to `table`; with table 0 all that lead to tables 255 to 65534,
/// the kernel's local table included: a purge of all policy routing. Rules that the kernel keeps are passed
/// over. NM_ERR_BAD_FORMAT for another family; NM_ERR_NOMEM; NM_ERR_NL_CONNECT.
int del_rules_by_rt(unsigned char family, RT_ID table);

#pragma GCC visibility pop

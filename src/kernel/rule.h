// Single rules of the kernel's routing policy: which table serves which packets (ip-rule(8)).
//
// The family is AF_INET or AF_INET6. A `table` of 0 deletes the rule of that priority (and selector) instead
// of adding one; a rule that exists is added once more. Every call has its own socket; what went wrong is
// reported on standard error. Codes of all but del_rules_by_rt(): NM_ERR_BAD_FORMAT for priority 0 or another
// family; NM_ERR_NOMEM; NM_ERR_NL_CONNECT; NM_ERR_NL_RULE_ADD; NM_ERR_NL_RULE_DELETE, also for a rule that
// does not exist.
#pragma once

#include <vector>

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

namespace nm {

/// A rule to add: what it chooses packets by, and where it stands.
struct NewRule {
    unsigned int priority;
    unsigned char family;
    const char* kind;  ///< for messages: "source", "oif", "dnat", "lan to wan", "table"
    unsigned int mark = 0;
    unsigned int mask = 0;
    bool by_source = false;
    const void* addr = nullptr;
    unsigned char prefix = 0;
    const char* oif = nullptr;
};

/// The rules of set_rule_by_src() and the three behind it.
NewRule source_rule(unsigned int priority, unsigned char family, const void* addr, unsigned char prefix,
                    int mark);
NewRule oif_rule(unsigned int priority, unsigned char family, const char* name, int mark);
NewRule dnat_rule(unsigned int priority, unsigned char family, int port);
NewRule lan_to_wan_rule(unsigned int priority, unsigned char family, int port);

/// Adds the rule, or with table 0 deletes it. The codes of the functions above.
int set_rule(const NewRule& rule, RT_ID table);

/// Whether these rules and no others lead to the table, as set_rule() would write them, in all that the
/// kernel says of a rule. False also where the kernel cannot be asked.
bool has_only_rules(RT_ID table, unsigned char family, const std::vector<NewRule>& rules);

}  // namespace nm

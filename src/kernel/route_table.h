// Numbers of routing tables and rule priorities. Every uplink has a table and a block of sixteen rule
// priorities that follow from its interface index alone, so that nothing has to be allocated or looked up.
#pragma once

/// Number of a routing table. In use: 1 and 251 static routes, 253 the default routes of all uplinks,
/// 256 + interface index the table of an uplink.
using RT_ID = unsigned int;

namespace nm {

/// Static routes lie in two tables, searched in this order.
constexpr RT_ID kFirstStaticTable = 251;
constexpr RT_ID kSecondStaticTable = 1;

/// Default routes of all uplinks, each with its metric.
constexpr RT_ID kDefaultRoutesTable = 253;

/// The block of priorities that starts at an interface's base.
/// The last two are those of a
/// LAN that shares its uplink's IPv6 prefix, and are the relay's (platform/relay6/).
enum class RuleSlot : unsigned int {
    Source = 1,
    Oif = 2,
    Dnat = 3,
    LanToWan = 4,
    RelayMain = 14,
    RelayUplink = 15
};

/// The first table of an uplink is this and its index; no index from the second on has one.
constexpr RT_ID kFirstUplinkTable = 256;
constexpr unsigned int kUplinkIndexEnd = 65536 - kFirstUplinkTable;

/// How many rule priorities belong to an interface.
constexpr unsigned int kRuleBlock = 16;

/// The table of the interface with this index; 0 for an index whose table number would reach 65536.
constexpr RT_ID uplink_table(unsigned int ifindex) {
    return ifindex < kUplinkIndexEnd ? kFirstUplinkTable + ifindex : 0;
}

/// The base of the interface's rule priorities.
constexpr unsigned int uplink_rule_base(unsigned int ifindex) {
    return ifindex * kRuleBlock;
}

/// The priority of a slot of the block.
constexpr unsigned int rule_priority(unsigned int base, RuleSlot slot) {
    return base + static_cast<unsigned int>(slot);
}

}  // namespace nm

// Rules and routing tables: what lies there, and what of it is not its owner's.
#include <linux/rtnetlink.h>
#include <net/if.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <map>
#include <optional>

#include "inspect/owners_view.h"
#include "inspect/read_command.h"
#include "kernel/link_state.h"
#include "kernel/marks.h"
#include "kernel/route_table.h"

namespace nm {

namespace {

using Words = std::vector<std::string>;

/// Words of ip(8) that have a value behind them, which may be the name of a device, so any word.
const Words kRuleKeys{
    "from",  "to",    "fwmark", "iif",     "oif",   "lookup", "uidrange", "ipproto",
    "sport", "dport", "tos",    "dsfield", "proto", "goto",   "tun_id",   "suppress_prefixlength",
    "realms"};
const Words kRouteKeys{"via", "dev", "table", "proto", "scope", "src", "metric", "pref", "nhid", "expires"};

struct Rule {
    std::string family;
    uint32_t priority;
    std::string text;  // as ip(8) has it, with the priority
    Words words;

    std::string word(const std::string& key) const { return word_after(words, kRuleKeys, key); }
    uint32_t table() const { return static_cast<uint32_t>(strtoul(word("lookup").c_str(), nullptr, 10)); }
    Present thing() const { return {Resource::Priority, family, std::to_string(priority), priority, text}; }
};

uint32_t number_of(const std::string& text) {
    return static_cast<uint32_t>(strtoul(text.c_str(), nullptr, 0));
}

std::string device_with(unsigned int index) {
    std::array<char, IFNAMSIZ> name{};
    return if_indextoname(index, name.data()) != nullptr ? name.data() : "";
}

/// The line of the base rules and that of ip(8) differ in blanks.
std::string plain_text(std::string line) {
    std::replace(line.begin(), line.end(), '\t', ' ');
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}

std::optional<Rule> read_rule(const std::string& family, const std::string& line) {
    const size_t colon = line.find(':');
    if (colon == std::string::npos || line.find_first_not_of("0123456789") != colon) {
        return std::nullopt;
    }
    const std::string text = plain_text(line);
    return Rule{family, number_of(text.substr(0, colon)), text, words_of(text.substr(colon + 1))};
}

/// Whether the rule asks for this flag and any port.
bool has_mark(const Rule& rule, uint32_t flag, uint32_t mask) {
    const std::string mark = rule.word("fwmark");
    const size_t slash = mark.find('/');
    return slash != std::string::npos && number_of(mark.substr(slash + 1)) == mask &&
           (number_of(mark) & ~kEgressPort.mask) == flag;
}

bool is_of_device(const Rule& rule, const char* key, const std::string& device) {
    return get_pure_ifname(rule.word(key)) == get_pure_ifname(device);
}

/// What may stand at a place of an interface's block.
struct Slot {
    const char* what;
    bool (*is_right)(const Rule& rule, const std::string& device);
    RuleSlot slot;
    bool has_own_table;
};

constexpr Slot kSlots[] = {
    {"packets from the uplink's address",
     [](const Rule& rule, const std::string&) { return rule.word("from") != "all"; }, RuleSlot::Source, true},
    {"sockets bound to the uplink",
     [](const Rule& rule, const std::string& device) { return is_of_device(rule, "oif", device); },
     RuleSlot::Oif, true},
    {"answers of forwards",
     [](const Rule& rule, const std::string&) { return has_mark(rule, kDnatReply, kDnatReplyMask); },
     RuleSlot::Dnat, true},
    {"packets that the balancing gave the uplink",
     [](const Rule& rule, const std::string&) { return has_mark(rule, kLanToWan, kLanToWanMask); },
     RuleSlot::LanToWan, true},
    {"packets of a relayed LAN to a neighbour",
     [](const Rule& rule, const std::string& device) {
         return is_of_device(rule, "iif", device) && rule.table() == RT_TABLE_MAIN;
     },
     RuleSlot::RelayMain, false},
    {"packets of a relayed LAN",
     [](const Rule& rule, const std::string& device) {
         return is_of_device(rule, "iif", device) && rule.table() >= kFirstUplinkTable;
     },
     RuleSlot::RelayUplink, false},
};

/// Why a rule in the block of an interface is not one of its owner's; empty if it is.
std::string fault_in_block(const Rule& rule) {
    const unsigned int index = rule.priority / kRuleBlock;
    const std::string device = device_with(index);
    const std::string block = "the block of the interface index " + std::to_string(index);
    if (device.empty()) {
        return "it lies in " + block + ", which no interface has";
    }
    const auto* const slot = std::find_if(std::begin(kSlots), std::end(kSlots), [&rule](const Slot& row) {
        return static_cast<unsigned int>(row.slot) == rule.priority % kRuleBlock;
    });
    if (slot == std::end(kSlots)) {
        return "it lies in " + block + " (" + device + "), which has no rule there";
    }
    if (slot->has_own_table && rule.table() != uplink_table(index)) {
        return "it leads " + std::string(slot->what) + " to the table " + rule.word("lookup") +
               ", and not to " + std::to_string(uplink_table(index)) + ", that of " + device;
    }
    return slot->is_right(rule, device)
               ? ""
               : "it is not the rule for " + std::string(slot->what) + " of " + device;
}

bool is_in_blocks(uint32_t priority) {
    return priority > uplink_rule_base(1) && priority < uplink_rule_base(kUplinkIndexEnd);
}

/// The kernel's own two are known by their priority and table.
bool is_kernels(const Rule& rule, const Claim& claim) {
    return claim.owner == "kernel" && claim.first == claim.last &&
           (rule.table() == RT_TABLE_LOCAL || rule.table() == RT_TABLE_MAIN);
}

/// Whether the base rules have this very rule; several may share a priority.
bool is_base_rule(const OwnersView& view, const Rule& rule) {
    return std::any_of(view.claims().begin(), view.claims().end(), [&rule](const Claim& claim) {
        return claim.resource == Resource::Priority && claim.place == rule.family && claim.shape == rule.text;
    });
}

void judge_rule(OwnersView& view, const Rule& rule, bool knows_base) {
    const Claim* const claim = view.enter(rule.thing());
    if (claim == nullptr || is_base_rule(view, rule) || is_kernels(rule, *claim)) {
        return;
    }
    if (is_in_blocks(rule.priority)) {
        const std::string fault = fault_in_block(rule);
        fault.empty() ? void() : view.stranger(rule.thing(), "uplinks", fault + ": " + rule.text);
    } else if (knows_base) {
        view.stranger(rule.thing(), claim->owner, "it is not a rule of its owner's: " + rule.text);
    }
}

/// Two uplinks whose ports have one number: a marked packet takes the first.
void find_shared_marks(OwnersView& view, const std::vector<Rule>& rules) {
    std::map<std::string, const Rule*> first;
    for (const Rule& rule : rules) {
        const unsigned int slot = rule.priority % kRuleBlock;
        const bool is_marked = slot == static_cast<unsigned int>(RuleSlot::Dnat) ||
                               slot == static_cast<unsigned int>(RuleSlot::LanToWan);
        const std::string mark = rule.word("fwmark");
        if (!is_in_blocks(rule.priority) || !is_marked || mark.empty()) {
            continue;
        }
        const Rule* const other = first.try_emplace(rule.family + " " + mark, &rule).first->second;
        if (other->table() != rule.table()) {
            view.collision(rule.thing(), "uplinks",
                           "the mark " + mark + " leads to the table " + std::to_string(other->table()) +
                               " before, by the rule " + std::to_string(other->priority));
        }
    }
}

bool knows_base_rules(const OwnersView& view) {
    return std::any_of(view.claims().begin(), view.claims().end(), [](const Claim& claim) {
        return claim.resource == Resource::Priority && !claim.shape.empty();
    });
}

void look_at_rules(OwnersView& view, const std::string& family) {
    const CommandText output = read_command("/sbin/ip -" + family + " -N rule show");
    if (!output.reason.empty()) {
        view.unread("IPv" + family + " rules of routing", output.reason);
        return;
    }
    const bool knows_base = knows_base_rules(view);
    std::vector<Rule> rules;
    for (const std::string& line : lines_of(output.text)) {
        if (const std::optional<Rule> rule = read_rule(family, line)) {
            judge_rule(view, *rule, knows_base);
            rules.push_back(*rule);
        }
    }
    find_shared_marks(view, rules);
}

// ---- Tables.

struct Route {
    std::string family;
    uint32_t table;
    std::string device;
    uint32_t protocol;
    std::string text;
};

std::optional<Route> read_route(const std::string& family, const std::string& line) {
    const Words words = words_of(line);
    if (words.empty() || line.front() == '\t' || line.front() == ' ') {
        return std::nullopt;  // a further next hop
    }
    const std::string table = word_after(words, kRouteKeys, "table");
    return Route{family, table.empty() ? RT_TABLE_MAIN : number_of(table),
                 word_after(words, kRouteKeys, "dev"), number_of(word_after(words, kRouteKeys, "proto")),
                 plain_text(line)};
}

bool is_uplink_table(uint32_t table) {
    return table > kFirstUplinkTable && table < kFirstUplinkTable + kUplinkIndexEnd;
}

/// Why a route in an uplink's table is not one of its owner's. The default route of a LAN's table leads to
/// the uplink that lent the prefix, so by another device.
std::string fault_in_table(const Route& route) {
    const unsigned int index = route.table - kFirstUplinkTable;
    const std::string device = device_with(index);
    if (device.empty()) {
        return "no interface has the index " + std::to_string(index);
    }
    const bool is_lent = route.family == "6" && route.text.rfind("default ", 0) == 0;
    return is_lent || get_pure_ifname(route.device) == get_pure_ifname(device)
               ? ""
               : "it does not leave by " + device + ", whose table this is";
}

void judge_route(OwnersView& view, const Route& route, const Claim& claim) {
    if (route.table == RT_TABLE_MAIN || route.table == RT_TABLE_LOCAL) {
        return;
    }
    std::string fault = is_uplink_table(route.table) ? fault_in_table(route) : "";
    if (fault.empty() && route.protocol != RTPROT_STATIC) {
        fault = "its owner marks its routes as static";
    }
    if (!fault.empty()) {
        view.stranger({Resource::Table, "", std::to_string(route.table)}, claim.owner,
                      fault + ": " + route.text);
    }
}

void look_at_tables(OwnersView& view) {
    std::map<uint32_t, std::array<size_t, 2>> counts;
    for (const std::string family : {"4", "6"}) {
        const CommandText output = read_command("/sbin/ip -" + family + " -N route show table all");
        if (!output.reason.empty()) {
            view.unread("IPv" + family + " routes", output.reason);
            continue;
        }
        for (const std::string& line : lines_of(output.text)) {
            const std::optional<Route> route = read_route(family, line);
            const Claim* const claim = route ? view.find({Resource::Table, "", "", route->table}) : nullptr;
            if (claim != nullptr) {
                ++counts[route->table][family == "6" ? 1 : 0];
                judge_route(view, *route, *claim);
            }
        }
    }
    for (const auto& [table, count] : counts) {
        (void)view.enter({Resource::Table, "", std::to_string(table), table,
                          std::to_string(count[0]) + " IPv4, " + std::to_string(count[1]) + " IPv6 routes"});
    }
}

}  // namespace

void look_at_routing(OwnersView& view) {
    look_at_rules(view, "4");
    look_at_rules(view, "6");
    look_at_tables(view);
}

}  // namespace nm

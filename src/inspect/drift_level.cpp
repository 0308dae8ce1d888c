// What of two worlds can be compared.
#include <fnmatch.h>

#include <algorithm>
#include <cstdlib>
#include <set>
#include <sstream>

#include "inspect/drift_boot.h"
#include "inspect/drift_view.h"
#include "kernel/route_table.h"
#include "policy/common/packet_names.h"
#include "services/dns/name_servers.h"
#include "utils/unit_names.h"

namespace nm {

namespace {

/// The overlay fills the first three, whoever recognises clients and dnsmasq the others.
const Lines kDaemonSets{"rlan", "ip6_rlan", "mpls_rlan", std::string(kClientSystemSets) + "*",
                        std::string(kHostnameSets) + "*"};

/// The one condition that a set-up writes; the link monitors write the others.
constexpr const char* kOwnCondition = "single_wan_condition";

/// What a boot runs itself, whatever the documents hold.
const Lines kBootUnits{"nm-base-rules.service", "nm-boot-*",           "nm-bringup.service",
                       "nm-reboot.service",     "nm-poweroff.service", "nm-serviced.service"};

/// Lines that come in the order of events, or whose order does not count.
const Lines kUnorderedFiles{"/etc/hosts", "/run/network/resolv.dnsmasq"};

/// Each of their rules is about a device of its own.
const Lines kUnorderedChains{"* WAN_MSS", "* TCP_MSS"};

/// The kernel's own routes, and those of routers' advertisements.
const Lines kMovingRoutes{"*fe80::/64 *", "*ff00::/8 *", "* proto ra*", "* proto redirect*"};

/// Addresses of fe80::/10 (RFC 4291).
const Lines kLinkLocal{"fe[89ab]?:*"};

/// Of a device, what its MTU sets, and what the advertiser takes over from what it advertises. The kernel
/// ties redirects to forwarding, and how a session makes its address to its link layer, which the copy lacks.
const Lines kMovingSettings{"ipv6/conf/*/mtu", "ipv6/conf/*/hop_limit", "ipv4/conf/*/accept_redirects",
                            "ipv6/conf/ppp-*/addr_gen_mode"};

/// What the relay of IPv6 adds: routes of a protocol of its own, and what lets the kernel answer for hosts
/// behind another device.
constexpr const char* kRelayRoutes = "* proto 106 *";
constexpr const char* kRelaySettings = "ipv6/conf/*/proxy_ndp";

/// It is net.ipv4.ip_forward by another name.
constexpr const char* kForwardingTwin = "ipv4/conf/all/forwarding";

bool matches_any(const Lines& patterns, const std::string& text) {
    return std::any_of(patterns.begin(), patterns.end(), [&text](const std::string& pattern) {
        return fnmatch(pattern.c_str(), text.c_str(), 0) == 0;
    });
}

template <class Condition>
void erase_things(Things& things, Condition condition) {
    for (auto thing = things.begin(); thing != things.end();) {
        thing = condition(thing->first) ? things.erase(thing) : std::next(thing);
    }
}

template <class Condition>
void erase_lines(Things& things, Condition condition) {
    for (auto& [name, lines] : things) {
        lines.erase(std::remove_if(lines.begin(), lines.end(), condition), lines.end());
    }
    const auto is_empty = [&things](const std::string& name) { return things[name].empty(); };
    erase_things(things, is_empty);
}

// ---- Indexes.

/// The described index, and that of the running device of the same name.
using IndexMap = std::map<unsigned int, unsigned int>;

IndexMap map_indexes(const Indexes& described, const Indexes& running) {
    IndexMap map;
    for (const auto& [name, index] : described) {
        const auto found = running.find(name);
        map[index] = found != running.end() ? found->second : index;
    }
    return map;
}

/// A table's number as the running device has it.
std::string running_table(const std::string& table, const IndexMap& map) {
    const unsigned long number = strtoul(table.c_str(), nullptr, 10);
    const auto found = number > kFirstUplinkTable ? map.find(number - kFirstUplinkTable) : map.end();
    return found != map.end() ? std::to_string(uplink_table(found->second)) : table;
}

std::string running_rule(const std::string& line, const IndexMap& map) {
    const unsigned long priority = strtoul(line.c_str(), nullptr, 10);
    const auto found = map.find(priority / kRuleBlock);
    std::string moved = found != map.end()
                            ? std::to_string(uplink_rule_base(found->second) + priority % kRuleBlock) + ":"
                            : line.substr(0, line.find(':') + 1);
    std::istringstream words(line.substr(line.find(':') + 1));
    std::string before;
    for (std::string word; words >> word; before = word) {
        moved += " " + (before == "lookup" ? running_table(word, map) : word);
    }
    return moved;
}

void take_indexes(World& described, const IndexMap& map) {
    Things routes;
    for (auto& [name, lines] : described[Domain::Route]) {
        const size_t number = name.rfind(' ') + 1;
        routes[name.substr(0, number) + running_table(name.substr(number), map)] = std::move(lines);
    }
    described[Domain::Route] = std::move(routes);
    for (auto& [name, lines] : described[Domain::Rule]) {
        for (std::string& line : lines) {
            line = running_rule(line, map);
        }
    }
}

/// The kernel keeps rules of one priority in the order in which they came.
void sort_rules(Things& rules) {
    for (auto& [name, lines] : rules) {
        std::sort(lines.begin(), lines.end(), [](const std::string& one, const std::string& other) {
            const unsigned long first = strtoul(one.c_str(), nullptr, 10);
            const unsigned long second = strtoul(other.c_str(), nullptr, 10);
            return first != second ? first < second : one < other;
        });
    }
}

// ---- What moves.

/// Of a set that a daemon fills counts what it is.
void forget_members(Things& sets) {
    for (auto& [name, lines] : sets) {
        if (matches_any(kDaemonSets, name)) {
            lines.resize(std::min<size_t>(lines.size(), 1));
        }
    }
}

void sort_lines(const Lines& patterns, Things& things) {
    for (auto& [name, lines] : things) {
        if (matches_any(patterns, name)) {
            std::sort(lines.begin(), lines.end());
        }
    }
}

void forget_moving(World& world) {
    forget_members(world[Domain::Set]);
    for (auto& [name, lines] : world[Domain::Condition]) {
        lines = name == kOwnCondition ? lines : Lines();
    }
    erase_things(world[Domain::File], is_undescribed_file);
    sort_lines(kUnorderedFiles, world[Domain::File]);
    sort_lines(kUnorderedChains, world[Domain::Chain]);
    erase_things(world[Domain::Unit], [](const std::string& unit) { return matches_any(kBootUnits, unit); });
    erase_lines(world[Domain::Route],
                [](const std::string& line) { return matches_any(kMovingRoutes, " " + line + " "); });
    erase_lines(world[Domain::Address],
                [](const std::string& line) { return matches_any(kLinkLocal, line); });
    sort_rules(world[Domain::Rule]);
}

/// No apply takes away the set of a client system.
void forget_left_sets(const Things& described, Things& running) {
    erase_things(running, [&described](const std::string& set) {
        return set.rfind(kClientSystemSets, 0) == 0 && described.count(set) == 0;
    });
}

// ---- Settings.

/// The same setting of all devices; empty for one that is not of a device.
std::string of_all_devices(const std::string& setting) {
    constexpr std::string_view kConf = "/conf/";
    const size_t begin = setting.find(kConf);
    const size_t end = begin != std::string::npos ? setting.find('/', begin + kConf.size()) : begin;
    return end != std::string::npos ? setting.substr(0, begin) + "/conf/all" + setting.substr(end) : "";
}

/// Whether both worlds have it as they have that of all devices, of which it follows.
bool follows_from_all(const std::string& setting, const Things& described, const Things& running) {
    const std::string all = of_all_devices(setting);
    const auto is_like_all = [&](const Things& settings) {
        const auto found = settings.find(all);
        return found != settings.end() && found->second == settings.at(setting);
    };
    return all != setting && is_like_all(described) && is_like_all(running);
}

/// Those of one world only belong to devices that the other lacks, which is found otherwise, or to the first
/// network of the kernel.
void level_settings(World& described, World& running) {
    Things& settings = described[Domain::Setting];
    Things& present = running[Domain::Setting];
    Things both;
    for (const auto& [name, lines] : settings) {
        const bool counts = present.count(name) > 0 && name != kForwardingTwin &&
                            !matches_any(kMovingSettings, name) && !follows_from_all(name, settings, present);
        if (counts) {
            both[name] = lines;
        }
    }
    settings = std::move(both);
    const Things& kept = settings;
    erase_things(present, [&kept](const std::string& name) { return kept.count(name) == 0; });
}

/// The device of the DHCPv6 and SLAAC client that the unit is; empty for other units.
std::string device_of_client(const std::string& unit) {
    const std::string client = kDhcp6ClientUnit;
    return unit.rfind(client, 0) == 0 ? unit.substr(client.size(), unit.rfind(".service") - client.size())
                                      : "";
}

/// That client sets those of its device as it needs them, among them what becomes of secondary addresses.
void forget_client_settings(World& described) {
    Things& settings = described[Domain::Setting];
    for (const auto& [unit, lines] : described[Domain::Unit]) {
        const std::string device = device_of_client(unit);
        erase_things(settings, [&device](const std::string& setting) {
            return !device.empty() && (setting.rfind("ipv6/conf/" + device + "/", 0) == 0 ||
                                       setting == "ipv4/conf/" + device + "/promote_secondaries");
        });
    }
}

// ---- Relays of IPv6.

/// The devices of the LANs that a relay is described for.
std::set<std::string> relayed_devices(const Things& units) {
    const std::string relay = kRelay6Unit;
    std::set<std::string> devices;
    for (const auto& [unit, lines] : units) {
        if (unit.rfind(relay, 0) == 0) {
            devices.insert(unit.substr(relay.size(), unit.rfind(".service") - relay.size()));
        }
    }
    return devices;
}

/// "DEVICE" of "1038: from all iif DEVICE lookup 265", where the place of the rule is that of a relay.
std::string device_of_relay_rule(const std::string& line) {
    const unsigned long place = strtoul(line.c_str(), nullptr, 10) % kRuleBlock;
    const bool is_of_relay = place == static_cast<unsigned long>(RuleSlot::RelayMain) ||
                             place == static_cast<unsigned long>(RuleSlot::RelayUplink);
    std::istringstream words(line);
    std::string word;
    while (is_of_relay && words >> word) {
        if (word == "iif" && words >> word) {
            return word;
        }
    }
    return "";
}

/// What the relay puts into the kernel while it runs, and its unit into ip6_relayed.
void forget_relays(const std::set<std::string>& devices, World& world) {
    erase_lines(world[Domain::Rule], [&devices](const std::string& line) {
        return devices.count(device_of_relay_rule(line)) > 0;
    });
    if (!devices.empty()) {
        erase_lines(world[Domain::Route],
                    [](const std::string& line) { return matches_any({kRelayRoutes}, " " + line + " "); });
        erase_things(world[Domain::Setting],
                     [](const std::string& setting) { return matches_any({kRelaySettings}, setting); });
    }
    const auto relayed = world[Domain::Set].find("ip6_relayed");
    Lines none;
    Lines& members = relayed != world[Domain::Set].end() ? relayed->second : none;
    for (const std::string& device : devices) {
        members.erase(std::remove(members.begin(), members.end(), "::/0," + device), members.end());
        world[Domain::Setting].erase("ipv6/conf/" + device + "/forwarding");
    }
}

}  // namespace

void level_worlds(World& described, const Indexes& described_indexes, World& running,
                  const Indexes& running_indexes) {
    take_indexes(described, map_indexes(described_indexes, running_indexes));
    forget_client_settings(described);
    const std::set<std::string> relayed = relayed_devices(described[Domain::Unit]);
    forget_relays(relayed, described);
    forget_relays(relayed, running);
    level_settings(described, running);
    forget_moving(described);
    forget_moving(running);
    forget_left_sets(described[Domain::Set], running[Domain::Set]);
}

}  // namespace nm

// Names, counters of the packet policy, units, and what the last requests came to.
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <map>
#include <optional>

#include "inspect/read_command.h"
#include "inspect/status_view.h"
#include "inspect/unit_list.h"
#include "kernel/marks.h"
#include "policy/common/packet_names.h"
#include "policy/common/presence.h"
#include "policy/common/restore_script.h"
#include "result_codes.h"
#include "services/dns/hostname_ipset.h"
#include "services/dns/name_servers.h"
#include "utils/file_io.h"

namespace nm {

namespace {

struct Counted {
    Json::UInt64 rules = 0;
    Json::UInt64 packets = 0;
    Json::UInt64 bytes = 0;
};

/// By the chain's place ("iptables mangle") and name.
using Counters = std::map<std::pair<std::string, std::string>, Counted>;

bool is_counted(const std::string& chain) {
    for (const char* const top : {kVerdictChain, kClassChain, kSteeringChain}) {
        if (chain == top || chain.rfind(segment_name(top, ""), 0) == 0) {
            return true;
        }
    }
    return chain == kSiteBalanceChain || chain == kPlainSiteBalanceChain || chain == kLanBalanceChain ||
           chain == kReplyMarkChain || chain == kForwardChain;
}

/// A rule of iptables-save -c: "[PACKETS:BYTES] -A CHAIN ...".
struct CountedRule {
    std::string chain;
    Json::UInt64 packets;
    Json::UInt64 bytes;
};

std::optional<CountedRule> read_counted(const std::string& line) {
    constexpr const char* kAppend = "] -A ";
    const size_t end = line.find(kAppend);
    const size_t colon = line.find(':');
    if (line.empty() || line.front() != '[' || end == std::string::npos || colon > end) {
        return std::nullopt;
    }
    const size_t name = end + std::string(kAppend).size();
    return CountedRule{line.substr(name, line.find(' ', name) - name),
                       strtoull(line.c_str() + 1, nullptr, 10),
                       strtoull(line.c_str() + colon + 1, nullptr, 10)};
}

/// What the base rules drop, since a verdict denies it.
bool is_denial(const std::string& line) {
    static const std::string match = "-A BASE_FORWARD -m mark --mark " + hex_mark(kVerdictDeny) + "/" +
                                     hex_mark(kVerdict.mask) + " -j DROP";
    return line.find(match) != std::string::npos;
}

void count_rules(Json::Value& report, const std::string& command, Counters& counters) {
    const CommandText output = read_command("/sbin/" + command + "-save -c");
    if (!output.reason.empty()) {
        note_unread(report, "counters of " + command, output.reason);
        return;
    }
    std::string place;
    for (const std::string& line : lines_of(output.text)) {
        if (!line.empty() && line.front() == '*') {
            place = command + " " + line.substr(1);
        }
        const std::optional<CountedRule> rule = read_counted(line);
        if (rule && is_denial(line)) {
            report["denied_packets"] = rule->packets;
        }
        if (rule && is_counted(rule->chain)) {
            Counted& counted = counters[{place, rule->chain}];
            ++counted.rules;
            counted.packets += rule->packets;
            counted.bytes += rule->bytes;
        }
    }
}

/// The number of an exit that an entry of the library has logged, and the entry's name.
std::optional<Json::Value> read_result(const std::string& line) {
    constexpr const char* kExit = " >>> Exit ";
    const size_t place = line.find("/control/");
    const size_t exit = line.find(kExit);
    const size_t open = line.find('(', place);
    if (place == std::string::npos || exit == std::string::npos || open > exit) {
        return std::nullopt;
    }
    const size_t name = line.rfind(' ', open) + 1;
    const std::string entry = line.substr(name, open - name);
    const bool is_entry = !entry.empty() && entry.find_first_of(":{") == std::string::npos;
    if (!is_entry) {
        return std::nullopt;
    }
    constexpr size_t kSeconds = 19;
    const int code = atoi(line.c_str() + exit + std::string(kExit).size());
    Json::Value record;
    record["time"] = line.substr(0, kSeconds);
    record["entry"] = entry;
    record["code"] = code;
    record["name"] = std::string(describe_result(code).name);
    return record;
}

/// The end of a log: who wants to know the last results needs no more.
std::string end_of(const std::string& path) {
    constexpr std::streamoff kMost = 2 << 20;
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    const std::streamoff size = file ? static_cast<std::streamoff>(file.tellg()) : 0;
    file.seekg(std::max<std::streamoff>(0, size - kMost));
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

Json::Value server_record(const std::vector<std::string>& words) {
    constexpr const char* kOwner = "#ID=";
    const std::string owner = words.size() > 2 ? words[2] : "";
    Json::Value record;
    record["address"] = words[1];
    record["owner"] = owner.rfind(kOwner, 0) == 0 ? owner.substr(std::string(kOwner).size()) : "";
    return record;
}

}  // namespace

void add_names(Json::Value& report) {
    Json::Value& names = report["names"] = Json::objectValue;
    names["servers"] = Json::arrayValue;
    note_unreadable(report, kNameServersPath);
    for (const std::string& line : lines_of(read_file(kNameServersPath).value_or(""))) {
        const std::vector<std::string> words = words_of(line);
        if (words.size() > 1 && words[0] == "nameserver") {
            names["servers"].append(server_record(words));
        }
    }
    std::unordered_map<std::string, std::string> hosts;
    (void)read_hostname_ipset_map(hosts);  // always 0
    names["host_names_in_rules"] = static_cast<Json::UInt64>(hosts.size());
}

void add_policy(Json::Value& report) {
    Json::Value& chains = report["policy"] = Json::arrayValue;
    if (geteuid() != 0) {
        note_unread(report, "counters of the packet policy", "only root can see them");
        return;
    }
    Counters counters;
    count_rules(report, "iptables", counters);
    count_rules(report, "ip6tables", counters);
    for (const auto& [chain, counted] : counters) {
        Json::Value& record = chains.append(Json::objectValue);
        record["place"] = chain.first;
        record["chain"] = chain.second;
        record["rules"] = counted.rules;
        record["packets"] = counted.packets;
        record["bytes"] = counted.bytes;
    }
}

void add_units(Json::Value& report) {
    Json::Value& list = report["units"] = Json::arrayValue;
    std::vector<ListedUnit> units;
    const std::string reason = list_units({"ncaas.service", "dnsmasqmgr.service", "overlayd.service"}, units);
    if (!reason.empty()) {
        note_unread(report, "units", reason);
    }
    for (const ListedUnit& unit : units) {
        Json::Value& record = list.append(Json::objectValue);
        record["unit"] = unit.name;
        record["state"] = unit.state;
    }
}

/// The boot has a log of its own.
void add_results(Json::Value& report) {
    constexpr size_t kMost = 10;
    std::deque<Json::Value> last;
    for (const char* const log : {"/var/log/network/bootup.log", "/var/log/network/main.log"}) {
        note_unreadable(report, log);
        for (const std::string& line : lines_of(end_of(log))) {
            const std::optional<Json::Value> result = read_result(line);
            if (result) {
                last.push_back(*result);
            }
            last.size() > kMost ? last.pop_front() : void();
        }
    }
    Json::Value& results = report["results"] = Json::arrayValue;
    for (const Json::Value& result : last) {
        results.append(result);
    }
}

}  // namespace nm

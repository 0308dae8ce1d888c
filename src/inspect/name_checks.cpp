// The names of segments, and the registry of service ports.
#include <algorithm>
#include <map>

#include "config/service_ports.h"
#include "inspect/checks.h"
#include "policy/common/packet_names.h"
#include "policy/common/presence.h"
#include "utils/json_text.h"
#include "utils/shell_text.h"

namespace nm {

namespace {

/// A set's name, as ipset(8) and the rules that match on it take it.
void check_segment(const Place& place, const std::string& key, std::map<std::string, std::string>& sets,
                   Findings& findings) {
    constexpr size_t kLongest = 31;  // ip_set.h: IPSET_MAXNAMELEN without its end
    const std::string set = segment_name(kSegmentSets, key);
    if (!is_plain(set) || set.find('/') != std::string::npos || set.size() > kLongest) {
        findings.error(place, "no set can be called " + set,
                       "a name of letters and digits, at most 27 characters");
    } else if (const auto used = sets.try_emplace(set, key); !used.second) {
        findings.warn(place, "the segment " + used.first->second + " has the same set, " + set,
                      "names that differ before their first hyphen");
    }
}

void check_segments(const Json::Value& segments, Findings& findings) {
    std::map<std::string, std::string> sets;
    for (const std::string& key : segments.isObject() ? segments.getMemberNames() : Json::Value::Members()) {
        const Place place = Place{"segment", ""} / key;
        check_segment(place, key, sets, findings);
        if (!segments[key].isArray()) {
            findings.warn(place, "this is not a list, and the segment has no networks", "a list of networks");
        }
    }
}

/// Only the first of two services of one name is found.
void check_registry(const Json::Value& registry, Findings& findings) {
    std::map<std::string, bool> names;
    for (const char* const list : {"PREDEFINED", "USER_DEFINED"}) {
        const Place place = Place{kRegistry, ""} / list;
        const Json::Value& rows = json_member(registry, list);
        for (Json::ArrayIndex i = 0; rows.isArray() && i < rows.size(); ++i) {
            std::string name = json_string_or(rows[i], "service", "");
            std::transform(name.begin(), name.end(), name.begin(), [](char c) {
                return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
            });
            const std::string ports = json_string_or(rows[i], "ports", "");
            std::vector<PortRange> ranges;
            if (!names.try_emplace(name, true).second) {
                findings.error(place / i / "service", "there is another service of this name",
                               "a name of its own");
            }
            if (!ports.empty() && !parse_ports(ports, ranges)) {
                findings.error(place / i / "ports", show_value(place, ports) + " is not valid",
                               "ports from 1 to 65535 and ranges, each port once: 137~139, 445");
            }
        }
    }
}

}  // namespace

/// The registry of the set of documents; where it has none, the predefined services.
std::vector<service_port> stored_services(const DocumentSet& documents) {
    if (documents.root(kRegistry).isNull()) {
        return get_default_service_ports();
    }
    std::vector<service_port> services;
    for (const char* const list : {"PREDEFINED", "USER_DEFINED"}) {
        for (const Json::Value& row : json_member(documents.root(kRegistry), list)) {
            services.push_back({json_string_or(row, "service", ""), json_string_or(row, "protocol", ""),
                                json_string_or(row, "ports", ""), "", ""});
        }
    }
    return services;
}

void check_names(const DocumentSet& documents, Findings& findings) {
    check_segments(documents.root("segment"), findings);
    check_registry(documents.root(kRegistry), findings);
}

}  // namespace nm

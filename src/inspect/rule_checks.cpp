// Rules of the packet policy: what a restore command would refuse, what names nothing, what has no effect.
#include <strings.h>

#include <algorithm>
#include <array>
#include <set>

#include "config/port_lookup.h"
#include "config/service_ports.h"
#include "inspect/checks.h"
#include "inspect/rule_words.h"
#include "kernel/marks.h"
#include "kernel/vlan.h"
#include "policy/common/packet_names.h"
#include "policy/common/presence.h"
#include "policy/firewall/firewall_rule.h"
#include "services/dns/hostname_ipset.h"
#include "utils/json_text.h"
#include "utils/shell_text.h"

namespace nm {

namespace {

constexpr const char* kSegments = "segment";
constexpr size_t kMostHostnames = 2048;

/// A document of rules and the chains that its rules are for.
struct RuleDocument {
    const char* name;
    std::vector<const char*> chains;
    const char* effect;    // what gives a rule an effect
    int deployment_ports;  // mode of get_ifname()
};

const std::array<RuleDocument, 2>& rule_documents() {
    static const std::array<RuleDocument, 2> documents{
        {{"firewall", {"FIREWALL"}, "ACTION \"ALLOW\" or \"DENY\"", 2},
         {"policy",
          {"POLICY", "STEER"},
          "GROUP, an integer from 1 to 15, or STEERING \"DIRECT\" and INTERFACE",
          0}}};
    return documents;
}

/// What rules refer to.
struct Surroundings {
    const Json::Value& device;
    std::set<std::string> segments;  // the names of their sets
    std::vector<service_port> services;
};

std::string text_at(const Json::Value& rule, const char* key) {
    return json_scalar(json_member(rule, key));
}

/// A rule on its way through the checks.
struct RuleCheck {
    const Place& place;
    const Json::Value& rule;
    const firewall_rule& parsed;
    const Surroundings& around;
    Findings& findings;

    void error(const char* key, const std::string& right, const char* other = "") const {
        findings.error(place / key, show_value(place / key, rule[key]) + " is not valid", right, other);
    }
};

void check_addresses_of(const RuleCheck& check) {
    for (const char* const key : {"SRC_IP", "DST_IP"}) {
        const std::string text = text_at(check.rule, key);
        if (!text.empty() && !is_rule_address(text)) {
            check.error(key, "an IPv4 address, a network A/LENGTH or a range A-B");
        }
    }
}

void check_ports_of(const RuleCheck& check) {
    if (!is_rule_protocol(check.parsed.protocol)) {
        check.error("PROTOCOL", "tcp, udp, icmp or another protocol; all or nothing for any");
        return;
    }
    for (const char* const key : {"SRC_PORT", "DST_PORT"}) {
        const std::string text = text_at(check.rule, key);
        if (text.empty()) {
            continue;
        }
        if (!has_ports(check.parsed.protocol, text)) {
            check.findings.error(check.place / key, check.parsed.protocol + " has no ports",
                                 "ports with the protocol tcp or udp only");
        } else if (!is_rule_ports(text)) {
            check.error(key, "a port, a range A-B, or a list with commas of at most 15");
        }
    }
}

/// A rule whose source is not found matches any.
void check_source(const RuleCheck& check) {
    const std::string vlan = text_at(check.rule, "SRC_VLAN");
    const std::string lan = text_at(check.rule, "SRC_LAN");
    if (!check.parsed.src_interface.empty() || !check.around.device.isObject()) {
        return;
    }
    if (!vlan.empty()) {
        check.error("SRC_VLAN", "the id of a VLAN of VLAN_SEG", kDevice);
    } else if (!lan.empty()) {
        check.error("SRC_LAN", "the name of a port", kDevice);
    }
}

/// A rule that names a segment without a set is left out. Others than the first of address, name and segment
/// are not looked at.
void check_segments(const RuleCheck& check) {
    const firewall_rule& parsed = check.parsed;
    const bool uses_source = parsed.src_ip.empty() && parsed.src_interface.empty();
    const bool uses_destination = parsed.dst_ip.empty() && parsed.dst_hostname.empty();
    const auto judge = [&](const char* key, const std::string& set, bool is_used) {
        if (is_used && !set.empty() && check.around.segments.count(set) == 0) {
            check.findings.error(check.place / key,
                                 show_value(check.place / key, check.rule[key]) +
                                     " is not a segment, and the rule is left out",
                                 "the name of a segment of segment.json", kSegments);
        }
    };
    judge("SRC_SEG", parsed.src_seg, uses_source);
    judge("DST_SEG", parsed.dst_seg, uses_destination);
}

void check_hostname(const RuleCheck& check) {
    const std::string& name = check.parsed.dst_hostname;
    if (!name.empty() && !is_hostname(name)) {
        check.error("DST_HOSTNAME", "a host name: labels of at most 63 characters with points between them");
    }
    if (!check.parsed.client_os.empty() && !is_plain(check.parsed.client_os)) {
        check.error("CLIENT_OS", "a word of letters, digits and hyphens");
    }
}

/// The protocols of the rule itself. One without ports has none.
unsigned protocols_of(const Json::Value& rule) {
    const std::string protocol = text_at(rule, "PROTOCOL");
    return protocol.empty() ? kTcp | kUdp : protocol_mask(protocol);
}

void check_services_of(const RuleCheck& check) {
    constexpr std::pair<const char*, const char*> kEnds[] = {{kSourceService, "SRC_PORT"},
                                                             {kDestinationService, "DST_PORT"}};
    for (const auto& [key, ports] : kEnds) {
        const std::string name = text_at(check.rule, key);
        if (name.empty()) {
            continue;
        }
        const service_port* const service = find_service(check.around.services, name);
        if (!text_at(check.rule, ports).empty()) {
            check.findings.warn(check.place / key, std::string(ports) + " counts, and the service does not",
                                "either a service or ports");
        } else if (service == nullptr) {
            check.error(key, "the name of a service; nm_bin service list shows them", kRegistry);
        } else if ((protocols_of(check.rule) & protocol_mask(service->protocol)) == 0) {
            check.findings.error(check.place / key, name + " has no ports of the rule's protocol",
                                 "a service of that protocol: this one is of " + service->protocol,
                                 kRegistry);
        }
    }
}

void check_egress(const RuleCheck& check) {
    const std::vector<PortEntry> ports = ports_of(check.around.device);
    const bool is_known = std::any_of(ports.begin(), ports.end(), [&check](const PortEntry& port) {
        const size_t digit = port.name.find_first_of("0123456789");
        return port.section != "LAN_PORT" && digit != std::string::npos &&
               port.name.substr(digit) == std::to_string(check.parsed.mark);
    });
    if (!is_known && check.around.device.isObject()) {
        check.error("INTERFACE", "the name of a port of an uplink", kDevice);
    }
}

void check_active(const RuleCheck& check, const std::string& chain) {
    check_addresses_of(check);
    check_ports_of(check);
    check_source(check);
    check_hostname(check);
    if (chain != "POLICY") {
        check_segments(check);
    }
    if (chain == "STEER") {
        check_egress(check);
    }
}

/// Steering that goes elsewhere than by a port is another program's.
bool is_steered_elsewhere(const Json::Value& rule) {
    const std::string steering = text_at(rule, "STEERING");
    return !steering.empty() && strcasecmp(steering.c_str(), "DIRECT") != 0;
}

void check_rule(const RuleDocument& document, const Place& place, const Json::Value& rule,
                const Surroundings& around, Findings& findings) {
    bool has_effect = false;
    check_services_of({place, rule, firewall_rule(), around, findings});  // they are looked up in any case
    for (const char* const chain : document.chains) {
        firewall_rule parsed;
        if (rule.isObject()) {
            firewall_jsontostruct(rule, around.device, chain, &parsed);
        }
        if (parsed.mark != 0) {
            has_effect = true;
            check_active({place, rule, parsed, around, findings}, chain);
        }
    }
    if (!has_effect && !is_steered_elsewhere(rule)) {
        findings.warn(place, "the rule has no effect", document.effect);
    }
}

void check_list(const RuleDocument& document, const Place& place, const Json::Value& rules,
                const Surroundings& around, Findings& findings) {
    if (!rules.isArray()) {
        findings.warn(place, "this is not a list, and nothing is read from it", "a list of rules");
        return;
    }
    for (Json::ArrayIndex i = 0; i < rules.size(); ++i) {
        check_rule(document, place / i, rules[i], around, findings);
    }
}

/// A further name would match any destination.
void check_hostname_count(const RuleDocument& document, const Json::Value& rules, Findings& findings) {
    std::set<std::string> names;
    for (const Json::Value& list : rules) {
        for (const Json::Value& rule : list) {
            names.insert(json_string_or(rule, "DST_HOSTNAME", ""));
        }
    }
    names.erase("");
    if (names.size() > kMostHostnames) {
        findings.error({document.name, "/RULES"}, std::to_string(names.size()) + " host names are too many",
                       "at most " + std::to_string(kMostHostnames));
    }
}

bool is_port_name(const std::string& place) {
    constexpr size_t kPrefix = 4;
    return place.size() > kPrefix && place.compare(0, kPrefix, "PORT") == 0;
}

/// Where segments are deployed: what names nothing is passed over, and its rules are never asked.
void check_deployment(const RuleDocument& document, const Json::Value& root, const Json::Value& device,
                      Findings& findings) {
    const Json::Value& deployed = json_member(root, "SEGMENT_DEPLOYED");
    for (const std::string& key : deployed.isObject() ? deployed.getMemberNames() : Json::Value::Members()) {
        const Place place = Place{document.name, "/SEGMENT_DEPLOYED"} / key;
        const std::string segment = json_string_or(deployed, key, "");
        const std::string ifname = is_port_name(key) ? get_ifname(device, key, document.deployment_ports)
                                                     : get_vlan_ifname(device, key);
        if (key != "SITE" && ifname.empty() && device.isObject()) {
            findings.error(place, key + " is neither a port of this document's kind nor a VLAN",
                           "SITE, a LAN port or the id of a VLAN; classes take any port", kDevice);
        }
        if (!segment.empty() && json_member(json_member(root, "RULES"), segment).isNull()) {
            findings.error(place, "there are no rules of " + segment, "a name of RULES");
        }
    }
}

void check_chain_names(const RuleDocument& document, const Json::Value& rules, Findings& findings) {
    for (const std::string& key : rules.getMemberNames()) {
        constexpr size_t kLongest = 28;  // xt_tables.h: XT_EXTENSION_MAXNAMELEN without its end
        const std::string name = segment_name(document.chains.front(), key);
        if (key != "SITE" && (!is_plain(name) || name.size() > kLongest)) {
            findings.error(Place{document.name, "/RULES"} / key, "no chain can be called " + name,
                           "a name of letters and digits, at most 28 characters with the chain's");
        }
    }
}

void check_document(const RuleDocument& document, const Json::Value& root, const Surroundings& around,
                    Findings& findings) {
    const Place place{document.name, "/RULES"};
    const Json::Value& rules = json_member(root, "RULES");
    if (rules.isObject()) {
        for (const std::string& key : rules.getMemberNames()) {
            check_list(document, place / key, rules[key], around, findings);
        }
        check_hostname_count(document, rules, findings);
        check_chain_names(document, rules, findings);
    }
    check_deployment(document, root, around.device, findings);
}

}  // namespace

void check_rules(const DocumentSet& documents, Findings& findings) {
    Surroundings around{documents.root(kDevice), {}, stored_services(documents)};
    const Json::Value& segments = documents.root(kSegments);
    for (const std::string& key : segments.isObject() ? segments.getMemberNames() : Json::Value::Members()) {
        around.segments.insert(segment_name(kSegmentSets, key));
    }
    for (const RuleDocument& document : rule_documents()) {
        check_document(document, documents.root(document.name), around, findings);
    }
}

}  // namespace nm

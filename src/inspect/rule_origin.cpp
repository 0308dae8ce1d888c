// Rules and their sources.
#include "inspect/rule_origin.h"

#include <fnmatch.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>

#include "config/nmconfig.h"
#include "inspect/read_command.h"
#include "policy/balance/load_balance.h"
#include "policy/common/packet_names.h"
#include "policy/common/rule_sources.h"
#include "policy/dnat/dnat.h"
#include "policy/edge/attack_defense.h"
#include "policy/firewall/firewall.h"
#include "policy/firewall/policy.h"
#include "result_codes.h"
#include "utils/files.h"
#include "utils/json_text.h"

namespace nm {

namespace {

constexpr const char* kBaseRules = "nm-base-rules";
constexpr const char* kDocuments = "documents";
constexpr const char* kNobody = "not of this system";
constexpr const char* kNotStored = "not of the stored documents";
constexpr const char* kUnknown = "unknown";
constexpr const char* kFirewall = "/etc/networkmanagement/firewall.json";
constexpr const char* kPolicy = "/etc/networkmanagement/policy.json";
constexpr const char* kPortSections[] = {"WAN_PORT", "PRIVATE_PORT", "RGLINK_PORT", "LAN_PORT"};
constexpr const char* kInfoSections[] = {"WAN_IFACE_INFO", "PRIVATE_IFACE_INFO", "RGLINK_IFACE_INFO",
                                         "LAN_IFACE_INFO"};

/// What is stored, and what is in force of it: the chains of segments that were made.
struct Documents {
    Json::Value stored;
    Json::Value in_force;
};

int read_documents(const std::string& path, Documents& documents) {
    const std::string name = path.substr(path.rfind('/') + 1);
    const std::string current = "/var/run/network/" + name.substr(0, name.rfind('.')) + ".curr";
    if (is_file_exists(current)) {
        (void)json_file_to_mem(current, documents.in_force);  // its segments only empty chains
    }
    const int ret = json_file_to_mem(path, documents.stored);
    return ret < 0 || documents.stored.isObject() ? ret : NM_ERR_BAD_FORMAT;
}

using WriteChain = int (*)(Documents& documents, std::string& error);

int write_verdicts(Documents& documents, std::string& error) {
    return setup_firewall(documents.in_force, documents.stored, "mangle", kVerdictChain, error);
}

int write_steering(Documents& documents, std::string& error) {
    return setup_firewall(documents.in_force, documents.stored, "mangle", kSteeringChain, error);
}

int write_classes(Documents& documents, std::string& error) {
    return setup_firewall_policy(documents.in_force, documents.stored, error);
}

int write_forwards(Documents&, std::string&) {
    return reload_dnat(kDeviceInfoPath);
}

int write_defence(Documents& documents, std::string&) {
    return setup_attack_defense(static_cast<uint32_t>(
        strtoul(json_string_or(documents.stored, "ATTACK_DEFENSE", "0").c_str(), nullptr, 0)));
}

/// The monitors that are called behind it are not there.
int write_balance(Documents&, std::string&) {
    (void)setup_site_to_site_load_balance(kDeviceInfoPath);
    (void)setup_lan_to_wan_load_balance(kDeviceInfoPath);
    return NM_OK;
}

/// What fills the chains of this pattern (glob(7)) from which document.
struct Generator {
    const char* chains;
    const char* document;
    WriteChain write;
};

constexpr Generator kGenerators[] = {
    {"IPv4 mangle FIREWALL*", kFirewall, write_verdicts},
    {"IPv4 mangle POLICY*", kPolicy, write_classes},
    {"IPv4 mangle STEER*", kPolicy, write_steering},
    {"IPv4 mangle DNATPREROUTING", kFirewall, write_forwards},
    {"IPv4 nat PORT_FORWARDING", kFirewall, write_forwards},
    {"IPv4 nat HAIRPIN_*", kFirewall, write_forwards},
    {"IPv4 filter ATTACK_DEFENSE", kFirewall, write_defence},
    {"IPv[46] mangle S2SLB*", kDeviceInfoPath, write_balance},
    {"IPv4 mangle WANLB", kDeviceInfoPath, write_balance},
};

bool is_one_of(const std::string& chain, const char* pattern) {
    return fnmatch(pattern, chain.c_str(), 0) == 0;
}

/// Chains of rules that follow from one device each, in whose words the device stands behind -i or -o.
struct DeviceChain {
    const char* chains;
    const char* words;
};

constexpr DeviceChain kDeviceChains[] = {{"IPv[46] * WAN_MSS", " -j TCPMSS "},
                                         {"IPv4 nat TCP_MSS", " -j TCPMSS "},
                                         {"IPv[46] filter GUESTFORWARD", " --match-set lan "}};

const Generator* find_generator(const std::string& chain) {
    const auto* const found =
        std::find_if(std::begin(kGenerators), std::end(kGenerators),
                     [&chain](const Generator& generator) { return is_one_of(chain, generator.chains); });
    return found == std::end(kGenerators) ? nullptr : found;
}

bool is_base_chain(const std::string& chain) {
    return is_one_of(chain, "* BASE_*");
}

std::string pointer_in(const Json::Value& device, const char* section, const std::string& key) {
    return json_member(json_member(device, section), key).isObject()
               ? std::string("/") + section + "/" + json_pointer_token(key)
               : "";
}

/// The chains as they are now.
Things read_chains() {
    WorldSource source;
    source.chains[0] = read_command("/sbin/iptables-save").text;
    source.chains[1] = read_command("/sbin/ip6tables-save").text;
    return describe_world(source)[Domain::Chain];
}

}  // namespace

Json::Value rule_source(const std::string& owner, const std::string& document, const std::string& pointer) {
    Json::Value source;
    source["owner"] = owner;
    if (!document.empty()) {
        source["document"] = document;
        source["pointer"] = pointer;
    }
    return source;
}

std::string interface_pointer(const Json::Value& device, const std::string& ifname) {
    constexpr const char* kSession = "ppp-";
    const std::string below = ifname.rfind(kSession, 0) == 0 ? ifname.substr(4) : ifname;
    for (const char* const section : kInfoSections) {
        const std::string pointer = pointer_in(device, section, below);
        if (!pointer.empty()) {
            return pointer;
        }
    }
    return "";
}

std::string port_pointer(const Json::Value& device, const std::string& ifname) {
    for (const char* const section : kPortSections) {
        const Json::Value& ports = json_member(device, section);
        for (const std::string& name : ports.isObject() ? ports.getMemberNames() : Json::Value::Members()) {
            if (json_string_or(ports[name], "INTERFACE", "") == ifname) {
                return pointer_in(device, section, name);
            }
        }
    }
    return "";
}

void RuleOrigins::write_anew(const std::vector<std::string>& chains) {
    std::map<WriteChain, const char*> needed;
    for (const std::string& chain : chains) {
        const Generator* const generator = find_generator(chain);
        if (generator != nullptr) {
            needed.emplace(generator->write, generator->document);
        }
    }
    for (const auto& [write, document] : needed) {
        Documents documents;
        std::string error;
        int ret = read_documents(document, documents);
        ret = ret < 0 ? ret : write(documents, error);
        if (ret < 0) {
            faults_[document] =
                error.empty() ? "its rules cannot be written (" + std::to_string(ret) + ")" : error;
        }
    }
    if (std::any_of(chains.begin(), chains.end(), is_base_chain)) {
        const std::string fault = read_command(NM_SBIN_DIR "/nm-base-rules").reason;
        if (!fault.empty()) {
            faults_[kBaseRules] = fault;
        }
    }
}

void RuleOrigins::keep(const std::string& chain, std::string line, const RuleSources& sources) {
    const RuleSource* const source = sources.take(line);
    if (source == nullptr) {
        base_[chain].push_back(line);
        return;
    }
    const Generator* const generator = find_generator(chain);
    const std::string document =
        !source->document.empty() || generator == nullptr ? source->document : generator->document;
    const std::string port =
        source->port_interface.empty() ? "" : port_pointer(device_, source->port_interface);
    made_[chain][line].push_back({document, port.empty() ? source->pointer : port});
}

void RuleOrigins::learn(const std::vector<std::string>& chains) {
    const RuleSources sources;
    write_anew(chains);
    for (const auto& [chain, lines] : read_chains()) {
        for (const std::string& line : lines) {
            keep(chain, line, sources);
        }
    }
}

/// Rules of the clamping, and those of guests, as the setups write them.
Json::Value RuleOrigins::find_by_device(const PlacedRule& rule) const {
    for (const DeviceChain& row : kDeviceChains) {
        const std::vector<std::string> words = words_of(rule.text);
        if (is_one_of(rule.chain, row.chains) && rule.text.find(row.words) != std::string::npos &&
            words.size() > 1 && (words[0] == "-i" || words[0] == "-o")) {
            const std::string pointer = interface_pointer(device_, words[1]);
            return pointer.empty() ? Json::Value() : rule_source(kDocuments, kDeviceInfoPath, pointer);
        }
    }
    return {};
}

Json::Value RuleOrigins::find_base(const PlacedRule& rule) const {
    const size_t name = rule.chain.rfind(' ') + 1;
    const auto found = base_.find(rule.chain);
    const bool is_there = found != base_.end() && std::find(found->second.begin(), found->second.end(),
                                                            rule.text) != found->second.end();
    const bool is_hook = rule.text == "-j BASE_" + rule.chain.substr(name);
    return is_hook || (is_base_chain(rule.chain) && is_there) ? rule_source(kBaseRules) : Json::Value();
}

Json::Value RuleOrigins::find_made(const PlacedRule& rule) const {
    const auto chain = made_.find(rule.chain);
    if (chain == made_.end()) {
        return {};
    }
    const auto lines = chain->second.find(rule.text);
    if (lines == chain->second.end()) {
        return {};
    }
    const Origin& origin = lines->second[std::min(rule.occurrence, lines->second.size() - 1)];
    return rule_source(kDocuments, origin.document, origin.pointer);
}

Json::Value RuleOrigins::find(const PlacedRule& rule) const {
    for (const Json::Value& source : {find_base(rule), find_made(rule), find_by_device(rule)}) {
        if (!source.isNull()) {
            return source;
        }
    }
    const Generator* const generator = find_generator(rule.chain);
    const char* const writer = is_base_chain(rule.chain) ? kBaseRules
                               : generator != nullptr    ? generator->document
                                                         : "";
    return rule_source(faults_.count(writer) > 0 ? kUnknown : generator != nullptr ? kNotStored : kNobody);
}

}  // namespace nm

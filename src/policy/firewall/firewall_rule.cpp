// The reading of a rule.
#include "policy/firewall/firewall_rule.h"

#include <string.h>
#include <strings.h>

#include <algorithm>
#include <cstdlib>

#include "config/port_lookup.h"
#include "config/service_ports.h"
#include "kernel/marks.h"
#include "kernel/vlan.h"
#include "log.h"
#include "policy/common/packet_names.h"
#include "policy/common/presence.h"
#include "utils/json_text.h"

namespace {

constexpr const char* kTextMembers[] = {"SRC_IP",
                                        "SRC_PORT",
                                        "SRC_VLAN",
                                        "SRC_LAN",
                                        "SRC_SEG",
                                        "DST_IP",
                                        "DST_PORT",
                                        "PROTOCOL",
                                        "DST_HOSTNAME",
                                        "DST_SEG",
                                        "CLIENT_OS",
                                        nm::kSourceService,
                                        nm::kDestinationService};

std::string text_of(const Json::Value& rule, const char* key) {
    const Json::Value& member = nm::json_member(rule, key);
    return member.isObject() || member.isArray() ? "" : member.asString();
}

std::string ports_of(const Json::Value& rule, const char* key) {
    std::string ports = text_of(rule, key);
    std::replace(ports.begin(), ports.end(), '-', ':');
    return ports;
}

std::string protocol_of(const Json::Value& rule) {
    std::string protocol = text_of(rule, "PROTOCOL");
    // Spelled out, because tolower() would let the locale decide.
    std::transform(protocol.begin(), protocol.end(), protocol.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return protocol.empty() ? "all" : protocol;
}

std::string interface_of(const Json::Value& rule, const Json::Value& device) {
    const std::string vlan = text_of(rule, "SRC_VLAN");
    if (!vlan.empty()) {
        return get_vlan_ifname(device, vlan);
    }
    const std::string lan = text_of(rule, "SRC_LAN");
    return lan.empty() ? "" : get_ifname(device, lan, 0);
}

std::string segment_of(const Json::Value& rule, const char* key) {
    const std::string segment = nm::json_string_or(rule, key, "");
    return segment.empty() ? "" : nm::segment_name(nm::kSegmentSets, segment);
}

int number_of(const Json::Value& rule, const char* key) {
    return atoi(nm::json_string_or(rule, key, "0").c_str());
}

void set_verdict(const Json::Value& rule, firewall_rule& out) {
    const Json::Value& action = nm::json_member(rule, "ACTION");
    if (!action.isString()) {
        return;
    }
    const std::string verdict = action.asString();
    out.mask = nm::kVerdict.mask;
    out.mark = verdict == "ALLOW" ? nm::kVerdictAllow : verdict == "DENY" ? nm::kVerdictDeny : 0;
}

void set_class(const Json::Value& rule, firewall_rule& out) {
    const Json::Value& group = nm::json_member(rule, "GROUP");
    if (group.isInt()) {
        out.mask = nm::kQosClass.mask;
        out.mark = nm::marked(nm::kQosClass, static_cast<uint32_t>(group.asInt()));
    }
}

/// The first number in the text; -1 if there is none.
int first_number(const std::string& text) {
    const size_t digit = text.find_first_of("0123456789");
    return digit == std::string::npos ? -1 : atoi(text.c_str() + digit);
}

void set_egress(const Json::Value& rule, firewall_rule& out) {
    if (strcasecmp(text_of(rule, "STEERING").c_str(), "DIRECT") != 0) {
        return;
    }
    const int port = first_number(text_of(rule, "INTERFACE"));
    if (port >= 1 && port <= static_cast<int>(nm::kMaxEgressPort)) {
        out.mask = nm::kEgressPort.mask;
        out.mark = nm::marked(nm::kEgressPort, static_cast<uint32_t>(port));
    }
}

/// What a rule sets, by how the name of its chain begins: those of segments have the top chain's name in
/// front.
constexpr struct {
    const char* chain;
    void (*set)(const Json::Value& rule, firewall_rule& out);
} kMarks[] = {
    {nm::kVerdictChain, set_verdict}, {nm::kClassChain, set_class}, {nm::kSteeringChain, set_egress}};

}  // namespace

void firewall_jsontostruct(const Json::Value& rule, const Json::Value& device, const char* chain,
                           firewall_rule* out) {
    firewall_rule& parsed = *out;
    parsed = firewall_rule();
    parsed.src_ip = text_of(rule, "SRC_IP");
    parsed.src_port = ports_of(rule, "SRC_PORT");
    parsed.src_interface = interface_of(rule, device);
    parsed.src_seg = segment_of(rule, "SRC_SEG");
    parsed.dst_ip = text_of(rule, "DST_IP");
    parsed.dst_port = ports_of(rule, "DST_PORT");
    parsed.dst_hostname = text_of(rule, "DST_HOSTNAME");
    parsed.dst_seg = segment_of(rule, "DST_SEG");
    parsed.client_os = text_of(rule, "CLIENT_OS");
    parsed.protocol = protocol_of(rule);
    parsed.cid = number_of(rule, "CID");
    parsed.aid = number_of(rule, "AID");
    for (const auto& row : kMarks) {
        if (strncmp(chain, row.chain, strlen(row.chain)) == 0) {
            row.set(rule, parsed);
        }
    }
}

namespace nm {

bool has_readable_members(const Json::Value& rule) {
    for (const char* const key : kTextMembers) {
        const Json::Value& member = json_member(rule, key);
        if (member.isObject() || member.isArray()) {
            NM_LOG(Error) << "Bad " << key << " in a rule: " << show_json(member);
            return false;
        }
    }
    return true;
}

}  // namespace nm

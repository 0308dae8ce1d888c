// Rules as lines.
#include "policy/firewall/rule_text.h"

#include "kernel/marks.h"
#include "log.h"
#include "policy/common/packet_names.h"
#include "policy/common/restore_script.h"
#include "services/dns/hostname_ipset.h"
#include "utils/shell_text.h"

namespace {

/// One end of a rule's packets: its values, and the letters and words that iptables has for it.
struct End {
    const std::string& ip;
    const std::string& segment;
    const char* option;     // of an address
    const char* range;      // of a range of addresses
    const char* direction;  // of a set
    const char* role;       // in the log
};

/// What has been quoted would be loaded, but others take a loaded rule for plain text: `iptables-save`, and
/// the shell that deletes the rules of a segment.
bool is_writable(const firewall_rule& rule, const std::string& chain) {
    for (const std::string* value :
         {&rule.protocol, &rule.src_ip, &rule.src_port, &rule.src_interface, &rule.src_seg, &rule.dst_ip,
          &rule.dst_port, &rule.dst_seg, &rule.client_os, &chain}) {
        if (!value->empty() && !nm::is_plain(*value)) {
            NM_LOG(Error) << "Bad value in a rule: " << *value;
            return false;
        }
    }
    // Without its set the rule would match every destination.
    const bool named = rule.dst_hostname.empty() || nm::is_hostname(rule.dst_hostname);
    if (!named) {
        NM_LOG(Error) << "Bad host name in a rule: " << rule.dst_hostname;
    }
    return named;
}

bool has_protocol(const firewall_rule& rule) {
    return !rule.protocol.empty() && rule.protocol != "all";
}

bool is_range(const std::string& ip) {
    return ip.find('-') != std::string::npos;
}

std::string ports_clause(const firewall_rule& rule, const std::string& ports, const std::string& option) {
    if (ports.empty()) {
        return "";
    }
    return ports.find(',') == std::string::npos ? " -m " + rule.protocol + " --" + option + " " + ports
                                                : " -m multiport --" + option + "s " + ports;
}

std::string protocol_clause(const firewall_rule& rule) {
    if (!has_protocol(rule)) {
        return "";
    }
    return " -p " + rule.protocol + ports_clause(rule, rule.src_port, "sport") +
           ports_clause(rule, rule.dst_port, "dport");
}

std::string address_clause(const End& end, bool& loads_iprange) {
    if (!is_range(end.ip)) {
        return std::string(" -") + end.option + " " + end.ip;
    }
    const std::string match = loads_iprange ? "" : " -m iprange";
    loads_iprange = true;
    return match + " --" + end.range + " " + end.ip;
}

std::string set_clause(const std::string& set, const char* direction) {
    return " -m set --match-set " + set + " " + direction;
}

/// Nothing if there is no such set, which would sink the whole script.
std::optional<std::string> segment_clause(nm::RuleWriter& writer, const End& end) {
    if (!writer.matches_segments || end.segment.empty()) {
        return "";
    }
    if (!writer.present.has_set(end.segment)) {
        NM_LOG(Error) << end.role << " SEG: " << end.segment << " does not exist.";
        return std::nullopt;
    }
    return set_clause(end.segment, end.direction);
}

std::optional<std::string> source_clause(nm::RuleWriter& writer, const firewall_rule& rule,
                                         bool& loads_iprange) {
    const End source{rule.src_ip, rule.src_seg, "s", "src-range", "src", "SRC"};
    if (!rule.src_ip.empty()) {
        return address_clause(source, loads_iprange);
    }
    if (!rule.src_interface.empty()) {
        return " -i " + rule.src_interface;
    }
    return segment_clause(writer, source);
}

std::optional<std::string> destination_clause(nm::RuleWriter& writer, const firewall_rule& rule,
                                              bool& loads_iprange) {
    const End destination{rule.dst_ip, rule.dst_seg, "d", "dst-range", "dst", "DST"};
    if (!rule.dst_ip.empty()) {
        return address_clause(destination, loads_iprange);
    }
    const auto hostname = writer.hostnames.find(rule.dst_hostname);
    if (!rule.dst_hostname.empty() && hostname != writer.hostnames.end()) {
        return set_clause(hostname->second, "dst");
    }
    return segment_clause(writer, destination);
}

std::string connmark_clause(const nm::MarkField& field, int32_t value) {
    constexpr int kDigits = 8;
    return value == 0
               ? ""
               : " -m connmark --mark " + std::to_string(nm::marked(field, static_cast<uint32_t>(value))) +
                     "/" + nm::hex_mark(field.mask, kDigits);
}

bool is_split(const firewall_rule& rule) {
    return rule.protocol == "all" && !(rule.src_port.empty() && rule.dst_port.empty());
}

std::string list_of(nm::RuleWriter writer, const Json::Value& rules, const std::string& chain) {
    std::string lines;
    for (const Json::Value& rule : rules.isArray() ? rules : Json::Value::nullSingleton()) {
        lines += writer.write(rule, chain).value_or("");
    }
    return lines;
}

}  // namespace

namespace nm {

std::optional<std::string> RuleWriter::write_line(const firewall_rule& rule, const std::string& chain) {
    if (rule.mark == 0) {
        return "";
    }
    if (!is_writable(rule, chain)) {
        return std::nullopt;
    }
    bool loads_iprange = false;
    const std::optional<std::string> source = source_clause(*this, rule, loads_iprange);
    if (!source) {
        return "";
    }
    const std::optional<std::string> destination = destination_clause(*this, rule, loads_iprange);
    if (!destination) {
        return "";
    }
    std::string client;
    if (!rule.client_os.empty()) {
        const std::string set = nm::kClientSystemSets + rule.client_os;
        present.make_set(set);  // Whoever recognises client systems may not have met this one yet.
        client = set_clause(set, "src");
    }
    return append_rule(chain, protocol_clause(rule) + *source + *destination +
                                  connmark_clause(kCid, rule.cid) + connmark_clause(kAid, rule.aid) + client +
                                  set_field(std::to_string(rule.mark), rule.mask) + " --return");
}

std::optional<std::string> RuleWriter::write(const Json::Value& rule, const std::string& chain) {
    if (!has_readable_members(rule)) {
        return std::nullopt;
    }
    if (!names_service(rule)) {
        return write_with_ports(rule, chain);
    }
    const std::optional<Json::Value> plain = with_service_ports(rule, services);
    return plain ? write_with_ports(*plain, chain) : std::nullopt;
}

std::optional<std::string> RuleWriter::write_with_ports(const Json::Value& rule, const std::string& chain) {
    firewall_rule parsed;
    firewall_jsontostruct(rule, device, chain.c_str(), &parsed);
    if (!is_split(parsed)) {
        return write_line(parsed, chain);
    }
    std::string lines;
    for (const char* const protocol : {"tcp", "udp"}) {
        parsed.protocol = protocol;
        const std::optional<std::string> line = write_line(parsed, chain);
        if (!line) {
            return std::nullopt;
        }
        lines += *line;
    }
    return lines;
}

}  // namespace nm

std::string gen_firewall_rule_internal(nm::HostnameMap& hostnames, firewall_rule* rule, const char* chain) {
    return nm::RuleWriter{Json::Value(), hostnames, true, {}}.write_line(*rule, chain).value_or("");
}

std::string gen_firewall_rule(Json::Value& rule, Json::Value& device, nm::HostnameMap& hostnames,
                              const char* chain) {
    return nm::RuleWriter{device, hostnames, true, {}}.write(rule, chain).value_or("");
}

std::string gen_firewall_chain(Json::Value& rules, Json::Value& device, nm::HostnameMap& hostnames,
                               const char* chain) {
    return list_of({device, hostnames, true, {}}, rules, chain);
}

std::string gen_firewall_policy_rule_internal(nm::HostnameMap& hostnames, firewall_rule* rule,
                                              const std::string& chain) {
    return nm::RuleWriter{Json::Value(), hostnames, false, {}}.write_line(*rule, chain).value_or("");
}

std::string gen_firewall_policy_rule(Json::Value& rule, Json::Value& device, nm::HostnameMap& hostnames,
                                     const std::string& chain) {
    return nm::RuleWriter{device, hostnames, false, {}}.write(rule, chain).value_or("");
}

std::string gen_firewall_policy_chain(Json::Value& rules, Json::Value& device, nm::HostnameMap& hostnames,
                                      const char* chain) {
    return list_of({device, hostnames, false, {}}, rules, chain);
}

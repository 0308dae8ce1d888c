// Port forwards and one-to-one NAT: from the list to the scripts that load it.
#include "policy/dnat/dnat.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <optional>

#include "config/nmconfig.h"
#include "config/port_lookup.h"
#include "kernel/marks.h"
#include "log.h"
#include "policy/common/named_services.h"
#include "policy/common/packet_names.h"
#include "policy/common/restore_script.h"
#include "policy/common/rule_sources.h"
#include "result_codes.h"
#include "utils/json_text.h"
#include "utils/process.h"
#include "utils/shell_text.h"

namespace {

constexpr const char* kFirewallPath = "/etc/networkmanagement/firewall.json";
constexpr const char* kRestoreSets = "/bin/cat <<- EOF | /sbin/ipset restore";
constexpr Json::ArrayIndex kMostRules = 100;
constexpr const char* kForwards = "/PORT_FORWARDING";
constexpr int kEverywhere = 0;  // mode of get_ifname(): ports of all kinds

/// Numbers count as their text. An object or a list is shown as JSON, which is not plain: its entry is
/// refused, instead of counting as one without this member.
std::string text_of(const Json::Value& value) {
    return value.isNull() ? "" : nm::show_json(value);
}

std::string text_of(const Json::Value& rule, const char* key) {
    return text_of(nm::json_member(rule, key));
}

std::string ports_of(const Json::Value& rule, const char* key) {
    std::string ports = text_of(rule, key);
    std::replace(ports.begin(), ports.end(), '-', ':');
    return ports;
}

bool has(const std::string& text, char character) {
    return text.find(character) != std::string::npos;
}

/// Whether both would take the same packets of one port.
bool clash(const Json::Value& rule, const Json::Value& other) {
    if (text_of(rule, "WAN_PORTNAME") != text_of(other, "WAN_PORTNAME")) {
        return false;
    }
    if (text_of(rule, "TYPE") == "1to1NAT" || text_of(other, "TYPE") == "1to1NAT") {
        return true;
    }
    const auto same = [&](const char* key) {
        return !text_of(rule, key).empty() && text_of(rule, key) == text_of(other, key);
    };
    return same("TCP_WAN_PORT") || same("UDP_WAN_PORT");
}

bool has_clash(const Json::Value& rules) {
    for (Json::ArrayIndex i = 0; i < rules.size(); ++i) {
        for (Json::ArrayIndex earlier = 0; earlier < i; ++earlier) {
            if (rules[i].isObject() && rules[earlier].isObject() && clash(rules[i], rules[earlier])) {
                return true;
            }
        }
    }
    return false;
}

int check(const Json::Value& rules) {
    if (!rules.isArray()) {
        NM_LOG(Error) << "conf is not arrayValue";
        return NM_ERR_BAD_FORMAT;
    }
    if (rules.size() > kMostRules) {
        NM_LOG(Error) << "conf size is larger than " << kMostRules;
        return NM_ERR_BAD_FORMAT;
    }
    if (has_clash(rules)) {
        NM_LOG(Error) << "conf is not valid.";
        return NM_ERR_BAD_FORMAT;
    }
    return NM_OK;
}

/// ipset(8) reads lines of up to 1,023 characters and takes the rest of a longer one for a command.
bool is_source(const std::string& address) {
    constexpr size_t kLongest = 255;
    return nm::is_plain(address) && address.size() <= kLongest;
}

/// Whether every value can stand in a script, whoever reads it: the shell, the restore commands of rules and
/// of sets, and those who read loaded rules back as text.
bool is_writable(const dnat_rule& rule) {
    const std::string* const words[] = {&rule.ifname,       &rule.lan_ip,       &rule.lan_port,
                                        &rule.tcp_wan_port, &rule.udp_wan_port, &rule.ipset_name};
    return std::all_of(std::begin(words), std::end(words),
                       [](const std::string* word) { return word->empty() || nm::is_plain(*word); }) &&
           std::all_of(rule.allowed_remote_ips.begin(), rule.allowed_remote_ips.end(), is_source);
}

/// Each set is named by its rule's place in the list.
void name_sets(Json::Value& rules) {
    for (Json::ArrayIndex i = 0; i < rules.size(); ++i) {
        if (rules[i].isObject()) {
            rules[i]["IPSET_NAME"] = nm::kForwardSets + std::to_string(i);
        }
    }
}

/// The first enabled rule with a value that is not a plain word.
std::optional<Json::ArrayIndex> unwritable_rule(Json::Value& rules, Json::Value& device) {
    for (Json::ArrayIndex i = 0; i < rules.size(); ++i) {
        dnat_rule rule;
        dnat_jsontostruct(rules[i], device, &rule);
        if (rule.enabled != 0 && !is_writable(rule)) {
            return i;
        }
    }
    return std::nullopt;
}

std::string rule_failed(const std::string& chain, Json::ArrayIndex index) {
    return chain + " rule" + std::to_string(index + 1) + " failed.";
}

/// What the number of a refused line is counted against: an entry has one line for each protocol with ports,
/// whatever it makes in a script. The user interface knows entries by this count.
constexpr int kLinesBeforeRules = 2;

int lines_of(const Json::Value& rule) {
    if (text_of(rule, "ACTION") != "ENABLE") {
        return 0;
    }
    return (text_of(rule, "TCP_WAN_PORT").empty() ? 0 : 1) + (text_of(rule, "UDP_WAN_PORT").empty() ? 0 : 1);
}

/// A protocol with ports, and how its WAN ports and the LAN's are matched.
struct Transport {
    std::string name;
    const std::string dnat_rule::*wan_port;
};

const Transport kTransports[] = {{"tcp", &dnat_rule::tcp_wan_port}, {"udp", &dnat_rule::udp_wan_port}};

std::string port_match(const std::string& protocol, const char* one, const char* several,
                       const std::string& ports) {
    return " -p " + protocol + (has(ports, ',') ? std::string(" -m multiport ") + several : one);
}

/// The port that replies come from: that of the LAN host, which is the WAN's unless another one is given.
const std::string& reply_port(const dnat_rule& rule, const Transport& transport) {
    return rule.lan_port.empty() ? rule.*transport.wan_port : rule.lan_port;
}

bool has_no_ports(const std::string& protocol) {
    return protocol == "ah" || protocol == "esp";
}

/// The parts of a forward's lines.
struct Clauses {
    std::string forward;
    std::string hairpin;
    std::string masquerade;
    std::string target;
};

Clauses clauses_of(const dnat_rule& rule) {
    Clauses clauses{std::string("-A ") + nm::kForwardChain + " -i " + rule.ifname, "-A HAIRPIN_FWD",
                    "-A HAIRPIN_MASQ -d " + rule.lan_ip, " -j DNAT --to-destination " + rule.lan_ip};
    if (!rule.allowed_remote_ips.empty()) {
        const std::string sources = " -m set --match-set " + rule.ipset_name + " src";
        clauses.forward += sources;
        clauses.hairpin += sources;
    }
    if (rule.type != 0 && !rule.lan_port.empty() && !has(rule.lan_port, ',') && !has(rule.lan_port, ':')) {
        clauses.target += ":" + rule.lan_port;
    }
    return clauses;
}

/// The masquerading names the port behind the translation; the form of its match follows the WAN port.
std::string forward_lines(const Clauses& clauses, const dnat_rule& rule, const Transport& transport) {
    const std::string& wan_port = rule.*transport.wan_port;
    if (wan_port.empty()) {
        return "";
    }
    const std::string match = port_match(transport.name, " --dport ", "--dports ", wan_port);
    return clauses.forward + match + wan_port + clauses.target + "\n" + clauses.hairpin + match + wan_port +
           clauses.target + "\n" + clauses.masquerade + match + reply_port(rule, transport) +
           " -j MASQUERADE\n";
}

std::string forward_text(const dnat_rule& rule) {
    const Clauses clauses = clauses_of(rule);
    if (rule.type == 0) {
        return clauses.forward + clauses.target + "\n";
    }
    std::string text;
    for (const Transport& transport : kTransports) {
        text += forward_lines(clauses, rule, transport);
    }
    if (has_no_ports(rule.protocol)) {
        const std::string match = " -p " + rule.protocol;
        text += clauses.forward + match + " " + clauses.target + "\n" + clauses.hairpin + match + " " +
                clauses.target + "\n" + clauses.masquerade + match + " -j MASQUERADE\n";
    }
    return text;
}

std::string set_text(const dnat_rule& rule) {
    if (rule.allowed_remote_ips.empty()) {
        return "";
    }
    std::string text = "flush " + rule.ipset_name + "\n";
    for (auto source = rule.allowed_remote_ips.begin(); source != rule.allowed_remote_ips.end(); ++source) {
        // Adding a member twice would end the script.
        if (std::find(rule.allowed_remote_ips.begin(), source, *source) == source) {
            text += "add " + rule.ipset_name + " " + *source + "\n";
        }
    }
    return text;
}

std::string ip4_of(const std::vector<available_base_wan_status>& wans, const std::string& ifname) {
    const auto wan = std::find_if(wans.begin(), wans.end(), [&ifname](const available_base_wan_status& row) {
        return row.ifname == ifname;
    });
    return wan != wans.end() ? wan->ip4.addr : "";
}

/// The number behind "PORT" with the bit of a reply.
std::string reply_mark(const std::string& wan_portname) {
    constexpr size_t kPrefix = 4;
    const int port = wan_portname.size() > kPrefix ? atoi(wan_portname.c_str() + kPrefix) : 0;
    return std::to_string(static_cast<uint32_t>(port) + nm::kDnatReply);
}

std::string reply_text(const dnat_rule& rule, const std::string& address) {
    const std::string match = " -m conntrack --ctstate DNAT --ctorigdst " + address;
    const std::string end = match + " -j MARK --set-mark " + reply_mark(rule.wan_portname) + "/" +
                            std::to_string(nm::kDnatReplyMask) + "\n";
    const std::string head = std::string("-A ") + nm::kReplyMarkChain;
    if (rule.type == 0) {
        return head + end;
    }
    std::string text;
    for (const Transport& transport : kTransports) {
        if (!(rule.*transport.wan_port).empty()) {
            const std::string& ports = reply_port(rule, transport);
            text += head + port_match(transport.name, " --sport ", "--sport ", ports) + ports + end;
        }
    }
    return has_no_ports(rule.protocol) ? text + head + " -p " + rule.protocol + end : text;
}

/// The sets of the rules that the old list did not have.
std::string new_sets(const Json::Value& old_rules, const Json::Value& new_rules) {
    std::string text;
    for (Json::ArrayIndex i = old_rules.size(); i < new_rules.size(); ++i) {
        text += "create DNAT" + std::to_string(i) + " hash:net --exist\n";
    }
    return text;
}

int load(const std::string& table, const std::string& chain, const std::string& lines, Json::Value& rules,
         std::string& error) {
    const std::string script = nm::table_script(nm::kReportingRestoreIp4, table, lines);
    const int ret = exec_iptables_restore(script.c_str(), rules, chain, error);
    if (ret != NM_OK && !error.empty()) {
        NM_LOG(Error) << error;
    }
    return ret;
}

/// What the sets' command refuses ends its script: the sets behind would keep what they had, perhaps for
/// another rule. Then each is filled by a script of its own, and a wrong source empties the set of its own
/// rule only.
void fill_sets(const std::string& created, const std::vector<std::string>& fills) {
    std::string all = created;
    for (const std::string& fill : fills) {
        all += fill;
    }
    if (system_cmd(nm::here_document(kRestoreSets, all).c_str()) == NM_OK) {
        return;
    }
    for (size_t i = 0; i < fills.size(); ++i) {
        if (!fills[i].empty() && system_cmd(nm::here_document(kRestoreSets, fills[i]).c_str()) != NM_OK) {
            NM_LOG(Error) << nm::kForwardChain << " rule" << i + 1
                          << ": its remote addresses are refused, it admits nobody.";
        }
    }
}

nm::RuleSource source_of(Json::ArrayIndex index) {
    return {"", std::string(kForwards) + "/" + std::to_string(index)};
}

int load_forwards(const Json::Value& old_rules, Json::Value& rules, Json::Value& device, std::string& error) {
    std::vector<std::string> fills(rules.size());
    std::string forwards = std::string("-F ") + nm::kForwardChain + "\n-F HAIRPIN_FWD\n-F HAIRPIN_MASQ\n";
    for (Json::ArrayIndex i = 0; i < rules.size(); ++i) {
        std::string lines;
        gen_dnat_rule(rules[i], device, fills[i], lines);
        forwards += nm::from_source(source_of(i), lines);
    }
    fill_sets(new_sets(old_rules, rules), fills);
    return load("nat", nm::kForwardChain, forwards, rules, error);
}

int load_reply_marks(const std::string& path, Json::Value& rules, Json::Value& device, std::string& error) {
    std::vector<available_base_wan_status> wans;
    const int ret = get_available_wan_info(wans, path, 0);
    if (ret != NM_OK) {
        NM_LOG(Error) << "get_available_wan_info failed, ret: " << ret;
        return ret;
    }
    std::string lines = std::string("-F ") + nm::kReplyMarkChain + "\n";
    for (Json::ArrayIndex i = 0; i < rules.size(); ++i) {
        std::string marks;
        gen_dnat_prerouting_rule(rules[i], device, wans, marks);
        lines += nm::from_source(source_of(i), marks);
    }
    const std::string flag = std::to_string(nm::kDnatReply);
    lines += nm::from_source(
        {"", kForwards},
        nm::append_rule(nm::kReplyMarkChain, " -m mark --mark " + flag + "/" + flag + " -j ACCEPT"));
    return load("mangle", nm::kReplyMarkChain, lines, rules, error);
}

int apply(const Json::Value& old_rules, Json::Value& rules, std::string& error, const std::string& path) {
    Json::Value device;
    int ret = json_file_to_mem(path, device);
    if (ret < 0) {
        NM_LOG(Error) << "json_file_to_mem fail. path = " << path;
        return ret;
    }
    ret = check(rules);
    if (ret != NM_OK) {
        return ret;
    }
    name_sets(rules);
    const std::optional<Json::ArrayIndex> refused = unwritable_rule(rules, device);
    if (refused) {
        error = rule_failed(nm::kForwardChain, *refused);
        NM_LOG(Error) << error;
        return NM_ERR_SERVICE;
    }
    ret = load_forwards(old_rules, rules, device, error);
    return ret != NM_OK ? ret : load_reply_marks(path, rules, device, error);
}

/// The list with the ports of the services that its forwards name; nothing if one of them is not known.
std::optional<Json::Value> with_ports(const Json::Value& rules, std::string& error) {
    nm::NamedServices services;
    Json::Value plain = rules;
    for (Json::ArrayIndex i = 0; i < rules.size(); ++i) {
        const std::optional<Json::Value> forward = nm::with_forward_ports(rules[i], services);
        if (!forward) {
            error = rule_failed(nm::kForwardChain, i);
            NM_LOG(Error) << error;
            return std::nullopt;
        }
        plain[i] = *forward;
    }
    return plain;
}

/// The caller stores what he gave: names of services, not their ports, with what an apply notes in an entry.
void take_notes(const Json::Value& applied, Json::Value& rules) {
    for (Json::ArrayIndex i = 0; i < rules.size(); ++i) {
        for (const char* note : {"IPSET_NAME", "ACTION"}) {
            if (rules[i].isObject() && applied[i].isMember(note)) {
                rules[i][note] = applied[i][note];
            }
        }
    }
}

int apply_named(const Json::Value& old_rules, Json::Value& rules, std::string& error,
                const std::string& path) {
    if (!rules.isArray() || std::none_of(rules.begin(), rules.end(), nm::names_service)) {
        return apply(old_rules, rules, error, path);
    }
    std::optional<Json::Value> plain = with_ports(rules, error);
    if (!plain) {
        return NM_ERR_SERVICE;
    }
    const int ret = apply(old_rules, *plain, error, path);
    take_notes(*plain, rules);
    return ret;
}

}  // namespace

dnat_rule::dnat_rule() : type(0), enabled(0) {
}

dnat_rule::~dnat_rule() = default;

void dnat_jsontostruct(Json::Value& rule, Json::Value& device, dnat_rule* out) {
    *out = dnat_rule();
    if (!rule.isObject()) {
        return;
    }
    const std::string type = text_of(rule, "TYPE");
    if (type != "port_forwarding" && type != "1to1NAT") {
        rule["ACTION"] = "DISABLE";
    }
    out->type = type == "port_forwarding" ? 1 : 0;
    out->enabled = text_of(rule, "ACTION") == "ENABLE" ? 1 : 0;
    out->wan_portname = text_of(rule, "WAN_PORTNAME");
    out->ifname = get_ifname(device, out->wan_portname, kEverywhere);
    out->lan_ip = text_of(rule, "LAN_IP");
    out->protocol = nm::json_string_or(rule, "PROTOCOL", "all");
    std::transform(out->protocol.begin(), out->protocol.end(), out->protocol.begin(), tolower);
    out->tcp_wan_port = ports_of(rule, "TCP_WAN_PORT");
    out->udp_wan_port = ports_of(rule, "UDP_WAN_PORT");
    out->lan_port = ports_of(rule, "LAN_PORT");
    out->ipset_name = text_of(rule, "IPSET_NAME");
    const Json::Value& sources = nm::json_member(rule, "ALLOWED_REMOTE_IPS");
    for (Json::ArrayIndex i = 0; sources.isArray() && i < sources.size(); ++i) {
        out->allowed_remote_ips.push_back(text_of(sources[i]));
    }
}

void gen_dnat_rule(Json::Value& rule, Json::Value& device, std::string& ipset_text, std::string& rule_text) {
    dnat_rule forward;
    dnat_jsontostruct(rule, device, &forward);
    if (forward.enabled != 0 && is_writable(forward)) {
        ipset_text += set_text(forward);
        rule_text += forward_text(forward);
    }
}

void gen_dnat_prerouting_rule(Json::Value& rule, Json::Value& device,
                              std::vector<available_base_wan_status>& wans, std::string& rule_text) {
    dnat_rule forward;
    dnat_jsontostruct(rule, device, &forward);
    const std::string address = ip4_of(wans, forward.ifname);
    if (forward.enabled != 0 && is_writable(forward) && !address.empty()) {
        rule_text += reply_text(forward, address);
    }
}

int exec_iptables_restore(const char* script, Json::Value& rules, std::string chain, std::string& error) {
    const std::optional<int> refused = nm::refused_line(script);
    if (!refused) {
        return NM_OK;
    }
    NM_LOG(Error) << chain << ": the restore command refused line " << *refused;
    int line = kLinesBeforeRules;
    if (*refused > 0 && line >= *refused) {
        error = chain + " flush old rules failed.";
    }
    for (Json::ArrayIndex i = 0; i < rules.size() && line < *refused; ++i) {
        line += lines_of(rules[i]);
        if (line >= *refused) {
            error = rule_failed(chain, i);
        }
    }
    return NM_ERR_SERVICE;
}

int setup_dnat(Json::Value& old_rules, Json::Value& new_rules, std::string& error, std::string path) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(apply_named(old_rules, new_rules, error, path));
}

int reload_dnat(std::string path) {
    NM_LOG(Debug) << "Enter";
    Json::Value document;
    int ret = json_file_to_mem(kFirewallPath, document);
    if (ret < 0) {
        NM_LOG(Error) << "json_file_to_mem fail. path = " << kFirewallPath;
        return NM_EXIT(ret);
    }
    if (!document.isObject() || !document.isMember("PORT_FORWARDING")) {
        return NM_EXIT(NM_OK);
    }
    Json::Value& rules = document["PORT_FORWARDING"];
    std::string error;
    ret = setup_dnat(rules, rules, error, path);
    if (ret != NM_OK) {
        NM_LOG(Error) << "setup_dnat fail. ret = " << ret;
    }
    return NM_EXIT(ret);
}

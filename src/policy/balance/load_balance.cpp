// The chains of the load balancing, written whole and loaded at once.
#include "policy/balance/load_balance.h"

#include <json/value.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iomanip>
#include <locale>
#include <optional>
#include <sstream>
#include <vector>

#include "config/nmconfig.h"
#include "kernel/condition.h"
#include "kernel/marks.h"
#include "log.h"
#include "peers/bus/bus_exchange.h"
#include "policy/common/packet_names.h"
#include "policy/common/restore_script.h"
#include "policy/common/rule_sources.h"
#include "result_codes.h"
#include "utils/json_text.h"
#include "utils/process.h"
#include "utils/shell_text.h"
#include "utils/strings.h"

namespace {

using Candidates = std::vector<load_balance_if>;

/// How the rules of a chain name a port: its condition, its mark, and what a packet without a choice carries.
struct Chain {
    const char* name;
    const char* condition_suffix;
    uint32_t flag;

    /// The bits that the choice covers.
    std::string mask() const { return nm::hex_mark(flag | nm::kEgressPort.mask); }
};

constexpr Chain kSiteToSite{nm::kSiteBalanceChain, "", 0};
constexpr Chain kWithoutMpls{nm::kPlainSiteBalanceChain, "", 0};
constexpr Chain kLanToWan{nm::kLanBalanceChain, nm::kLanBalanceCondition, nm::kLanToWan};

constexpr const char* kUplinks = "/WAN_PORT";
constexpr const char* kPrivatePorts = "/PRIVATE_PORT";
constexpr const char* kSingleWan = "single_wan_condition";

/// Member `key` as text; what is no text and no number counts as absent.
std::string text_of(const Json::Value& entry, const char* key, const char* fallback) {
    const Json::Value& value = nm::json_member(entry, key);
    return value.isObject() || value.isArray() ? fallback : nm::json_text(entry, key, fallback);
}

/// A text that is not a number in range gives 0, and so leaves the port out.
uint64_t rate_of(const Json::Value& entry) {
    return nm::rate_from_text(nm::json_string_or(entry, "TX_RATE", text_of(entry, "ISP_BW", "0")));
}

/// The rules are text for a shell: a name that cannot be written there harmlessly is not a name.
bool is_writable(const std::string& interface) {
    if (interface.empty()) {
        return false;
    }
    const bool writable = nm::restore_word(interface).has_value();
    if (!writable) {
        NM_LOG(Error) << "Bad interface name: " << interface;
    }
    return writable;
}

Candidates read_candidates(const Json::Value& ports) {
    Candidates candidates;
    for (const Json::Value& entry : ports) {
        load_balance_if candidate{text_of(entry, "INTERFACE", ""), atoi(text_of(entry, "PRIO", "0").c_str()),
                                  rate_of(entry)};
        if (candidate.prio != 0 && candidate.rate != 0 && is_writable(candidate.interface)) {
            candidates.push_back(std::move(candidate));
        }
    }
    return candidates;
}

/// The WAN ports that take part, and the document.
int read_uplinks(const std::string& path, Json::Value& document, Candidates& uplinks) {
    const int ret = json_file_to_mem(path, document);
    if (ret < 0) {
        NM_LOG(Error) << "Read json file: " << path << " failed.";
        return ret;
    }
    const Json::Value& ports = nm::json_member(document, "WAN_PORT");
    if (ports.empty()) {
        NM_LOG(Error) << "Missing WAN_PORT info.";
        return NM_ERR_EMPTY;
    }
    uplinks = read_candidates(ports);
    if (uplinks.empty()) {
        NM_LOG(Error) << "Empty WAN_PORT info.";
        return NM_ERR_EMPTY;
    }
    return NM_OK;
}

int port_of(const std::string& interface) {
    for (const std::string prefix : {"swdev", "eth"}) {
        if (interface.find(prefix) != std::string::npos) {
            return atoi(interface.c_str() + prefix.size());
        }
    }
    return 0;
}

std::string mark_of(const Chain& chain, const std::string& interface) {
    return std::to_string(port_of(interface) + static_cast<int>(chain.flag)) + "/" + chain.mask();
}

/// A rule that follows from the ports as a whole.
std::string rule(const Chain& chain, const std::string& rest) {
    return nm::from_source({"", kUplinks}, nm::append_rule(chain.name, rest));
}

/// A rule of one of the ports in a section.
std::string port_rule(const Chain& chain, const char* section, const std::string& interface,
                      const std::string& rest) {
    return nm::from_source({"", section, interface}, nm::append_rule(chain.name, rest));
}

std::string port_rule(const Chain& chain, const load_balance_if& candidate, const std::string& rest) {
    return port_rule(chain, "", candidate.interface, rest);
}

std::string condition(const Chain& chain, const load_balance_if& candidate, bool negated = false) {
    return nm::condition_match(nm::restore_word(candidate.interface + chain.condition_suffix).value_or(""),
                               negated);
}

/// Restores the choice of the connection, or saves it.
std::string connmark(const Chain& chain, const char* direction) {
    return rule(chain, std::string(" -j CONNMARK --") + direction + "-mark --nfmask " + chain.mask() +
                           " --ctmask " + chain.mask());
}

std::string set_mark(const std::string& mark) {
    return " -j MARK --set-mark " + mark;
}

std::string egress_mask() {
    return nm::hex_mark(nm::kEgressPort.mask);
}

/// Whoever has a port already is not asked again.
std::string chosen_returns(const Chain& chain) {
    return rule(chain, nm::unmarked_match(egress_mask(), true) + " -j RETURN");
}

/// Wipes the choice of a port that has died since.
std::string wiping_rules(const Chain& chain, const Candidates& candidates) {
    std::string text;
    for (const load_balance_if& candidate : candidates) {
        text += port_rule(chain, candidate,
                          " -m mark --mark " + mark_of(chain, candidate.interface) +
                              condition(chain, candidate, true) + set_mark("0x0/" + chain.mask()));
    }
    return text;
}

/// With a point whatever the locale of the process.
std::string probability(double rate, double remaining) {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << std::fixed << std::setprecision(6) << rate / remaining;
    return text.str();
}

double sum_of_rates(const Candidates& candidates) {
    uint64_t sum = 0;
    for (const load_balance_if& candidate : candidates) {
        sum += candidate.rate;
    }
    return static_cast<double>(sum);
}

/// The weighted choice. Each probability holds for what the rules before have left, so the port that comes at
/// the end needs none. That is the first one: what is left falls to the first port that is alive anyway.
std::string statistic_rules(const Chain& chain, const Candidates& candidates) {
    std::string text;
    double remaining = sum_of_rates(candidates);
    for (size_t i = candidates.size() - 1; i > 0; --i) {
        const load_balance_if& candidate = candidates[i];
        const auto rate = static_cast<double>(candidate.rate);
        text += port_rule(chain, candidate,
                          nm::unmarked_match(egress_mask()) + condition(chain, candidate) +
                              " -m statistic --mode random --probability " + probability(rate, remaining) +
                              set_mark(mark_of(chain, candidate.interface)));
        remaining -= rate;
    }
    return text;
}

/// What the choice left over takes the first port that is alive.
std::string remaining_rules(const Chain& chain, const Candidates& candidates) {
    std::string text;
    for (const load_balance_if& candidate : candidates) {
        text += port_rule(chain, candidate,
                          nm::unmarked_match(chain.mask()) + condition(chain, candidate) +
                              set_mark(mark_of(chain, candidate.interface)));
    }
    return text;
}

std::string choice(const Chain& chain, const Candidates& candidates) {
    return statistic_rules(chain, candidates) + remaining_rules(chain, candidates) + connmark(chain, "save");
}

/// Traffic that does not belong on the private circuits loses a private port that it was given before.
std::string private_wiping_rules(const Json::Value& ports) {
    std::string text;
    for (const Json::Value& entry : ports) {
        const std::string interface = text_of(entry, "INTERFACE", "");
        if (!interface.empty()) {
            text += port_rule(
                kWithoutMpls, kPrivatePorts, interface,
                " -m mark --mark " + mark_of(kWithoutMpls, interface) + set_mark("0x0/" + egress_mask()));
        }
    }
    return text;
}

std::string site_to_site_ip4(const Candidates& all, const Candidates& uplinks,
                             const Json::Value& private_ports) {
    return nm::table_script(
        nm::kRestoreIp4, "mangle",
        "-F S2SLB\n-F S2SLB_WITHOUT_MPLS\n" + connmark(kSiteToSite, "restore") +
            wiping_rules(kSiteToSite, all) +
            rule(kSiteToSite, " -m set ! --match-set mpls_rlan dst -j S2SLB_WITHOUT_MPLS") +
            chosen_returns(kSiteToSite) + choice(kSiteToSite, all) + private_wiping_rules(private_ports) +
            chosen_returns(kWithoutMpls) + choice(kWithoutMpls, uplinks));
}

/// There are no private circuits for IPv6, and a connection stays with its port even when that has died.
std::string site_to_site_ip6(const Candidates& uplinks) {
    return nm::table_script(nm::kRestoreIp6, "mangle",
                            "-F S2SLB\n" + connmark(kSiteToSite, "restore") + choice(kSiteToSite, uplinks));
}

std::string lan_to_wan(const Candidates& uplinks) {
    return nm::table_script(nm::kRestoreIp4, "mangle",
                            "-F WANLB\n" + connmark(kLanToWan, "restore") + wiping_rules(kLanToWan, uplinks) +
                                chosen_returns(kLanToWan) + choice(kLanToWan, uplinks));
}

void load(const std::string& script, const char* failure) {
    if (system_cmd(script.c_str()) != NM_OK) {
        NM_LOG(Error) << failure;
    }
}

/// Conditions exist only while a rule names them, so the monitor has to set those of new rules.
int reload_conditions() {
    int error = NM_OK;
    const int ret = nm::query_service("VelanWmd", "Reload_condition", Json::Value(), error);
    if (ret != NM_OK) {
        return ret;
    }
    return error == NM_OK ? NM_OK : NM_ERR_RELOAD;
}

void load_site_to_site(const Json::Value& document, const Candidates& uplinks) {
    const Json::Value& private_ports = nm::json_member(document, "PRIVATE_PORT");
    if (private_ports.empty()) {
        NM_LOG(Debug) << "Empty PRIVATE_PORT info.";
    }
    Candidates all = read_candidates(private_ports);
    all.insert(all.begin(), uplinks.begin(), uplinks.end());
    std::sort(all.begin(), all.end());
    load(site_to_site_ip4(all, uplinks, private_ports), "setup_site_to_site_load_balance() failed.");
    load(site_to_site_ip6(uplinks), "setup ipv6 site-to-site load balancing failed.");
}

void load_lan_to_wan(const Json::Value&, const Candidates& uplinks) {
    load(lan_to_wan(uplinks), "setup_lan_to_wan_load_balance() failed.");
}

int balance(const std::string& path, void (*load_chains)(const Json::Value&, const Candidates&)) {
    Json::Value document;
    Candidates uplinks;
    const int ret = read_uplinks(path, document, uplinks);
    if (ret != NM_OK) {
        return ret;
    }
    std::sort(uplinks.begin(), uplinks.end());
    load_chains(document, uplinks);
    return reload_conditions();
}

}  // namespace

namespace nm {

std::vector<load_balance_if> balanced_uplinks(const Json::Value& document) {
    return read_candidates(json_member(document, "WAN_PORT"));
}

}  // namespace nm

int setup_site_to_site_load_balance(std::string path) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(balance(path, load_site_to_site));
}

int setup_lan_to_wan_load_balance(std::string path) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(balance(path, load_lan_to_wan));
}

int setup_local_single_wan_nf_condiftion(std::string path) {
    NM_LOG(Debug) << "Enter";
    nm::FileDescriptor switch_file = nm::open_condition(kSingleWan);
    if (!switch_file) {
        NM_LOG(Error) << "file not good: " << nm::condition_path(kSingleWan);
        return NM_EXIT(NM_ERR_OPEN);
    }
    Json::Value document;
    const int ret = json_file_to_mem(path, document);
    if (ret < 0) {
        return NM_EXIT(ret);
    }
    const bool single = nm::json_member(document, "WAN_PORT").size() <= 1;
    if (!nm::set_condition(switch_file, single)) {
        NM_LOG(Error) << "Write condition: " << path << " failed, " << strerror(errno);
        return NM_EXIT(NM_ERR_OPEN);
    }
    NM_LOG(Debug) << "Update condition:  " << nm::condition_path(kSingleWan) << (single ? ", 1" : ", 0");
    return NM_EXIT(NM_OK);
}

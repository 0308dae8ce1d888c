// The script of a top chain and its segments.
#include "policy/firewall/chain_script.h"

#include <algorithm>

#include "config/nmconfig.h"
#include "config/port_lookup.h"
#include "kernel/vlan.h"
#include "log.h"
#include "policy/common/restore_script.h"
#include "policy/common/rule_sources.h"
#include "policy/firewall/firewall.h"
#include "policy/firewall/hostname_sets.h"
#include "result_codes.h"
#include "services/dns/dnsmasq.h"
#include "services/dns/hostname_ipset.h"
#include "utils/handles.h"
#include "utils/json_text.h"
#include "utils/shell_text.h"

namespace nm {

namespace {

constexpr const char* kSite = "SITE";
constexpr const char* kHostnameMap = "/var/run/network/dnsmasq.d/ipset.conf";

/// The map of host names for the time of an apply whose caller holds its lock. On every way out unused sets
/// go, and dnsmasq starts anew with the map.
class HostnameSets {
public:
    HostnameSets() { (void)read_hostname_ipset_map(map_); }  // always 0
    ~HostnameSets() {
        remove_redundant_hostname_ipset(map_);
        (void)write_hostname_ipset_map(map_);  // the rules are in force either way
        restart_dnsmasq();
    }
    HostnameSets(const HostnameSets&) = delete;
    HostnameSets& operator=(const HostnameSets&) = delete;

    HostnameMap& map() { return map_; }

private:
    HostnameMap map_;
};

/// Member `key` as an object that can be added to.
Json::Value& object_at(Json::Value& parent, const std::string& key) {
    Json::Value& member = parent[key];
    if (!member.isObject()) {
        member = Json::objectValue;
    }
    return member;
}

}  // namespace

ChainScript::ChainScript(const ChainPlan& plan, const Json::Value& device, const HostnameMap& hostnames,
                         const Json::Value& old_config, Json::Value& new_config)
    : plan_(plan),
      new_config_(new_config),
      writer_{device, hostnames, plan.matches_segments, {}},
      lines_("-F " + plan.chain + "\n") {
    flush_old_chains(old_config);
    lines_ += plan.first_rule;
}

bool ChainScript::refuse(const std::string& culprit) {
    error_ = plan_.chain + " " + culprit + " failed.";
    return false;
}

void ChainScript::flush_old_chains(const Json::Value& old_config) {
    for (const Json::Value& value : json_member(json_member(old_config, "CHAIN_NAME"), plan_.chain)) {
        const std::string name = value.isString() ? value.asString() : "";
        // A name that is not plain is not one that was ever created, nor is an option: "-F -v" empties all
        // chains.
        if (is_plain(name) && name.front() != '-' && present_.has_chain(plan_.table, name)) {
            lines_ += "-F " + name + "\n";
        }
    }
}

std::vector<std::string> ChainScript::places() const {
    const Json::Value& deployed = json_member(new_config_, "SEGMENT_DEPLOYED");
    std::vector<std::string> places =
        deployed.isObject() ? deployed.getMemberNames() : Json::Value::Members();
    places.erase(std::remove(places.begin(), places.end(), kSite), places.end());
    return places;
}

std::string ChainScript::device_of(const std::string& place, int mode) const {
    constexpr size_t kPrefix = 4;
    return place.size() > kPrefix && place.compare(0, kPrefix, "PORT") == 0
               ? get_ifname(writer_.device, place, mode)
               : get_vlan_ifname(writer_.device, place);
}

std::string ChainScript::chain_of(const Json::Value& key) const {
    const Json::Value& chains = json_member(json_member(new_config_, "CHAIN_NAME"), plan_.chain);
    return key.isString() ? json_string_or(chains, key.asString(), "") : "";
}

bool ChainScript::add_rules(const std::string& key, const std::string& name, const Json::Value& rules) {
    const std::string pointer = "/RULES/" + json_pointer_token(key) + "/";
    for (Json::ArrayIndex i = 0; rules.isArray() && i < rules.size(); ++i) {
        const std::optional<std::string> lines = writer_.write(rules[i], name);
        if (!lines) {
            return refuse(key + " rule" + std::to_string(i + 1));
        }
        lines_ += from_source({"", pointer + std::to_string(i)}, *lines);
    }
    return true;
}

bool ChainScript::add_segment(const std::string& key, const std::string& name, const Json::Value& rules) {
    if (!is_plain(name)) {
        NM_LOG(Error) << "Bad chain name: " << name;
        return refuse(key);
    }
    object_at(object_at(new_config_, "CHAIN_NAME"), plan_.chain)[key] = name;
    // Segments whose keys begin alike share a chain.
    if (!present_.has_chain(plan_.table, name) && created_.insert(name).second) {
        lines_ += "-N " + name + "\n";
    }
    return add_rules(key, name, rules);
}

bool ChainScript::add_jump(const std::string& place, const std::string& match, const std::string& ifname,
                           const std::string& name) {
    if (!is_plain(name) || !(ifname.empty() || is_plain(ifname))) {
        NM_LOG(Error) << "Bad jump from " << ifname << " to " << name;
        return refuse("SEGMENT_DEPLOYED");
    }
    const std::string jump = match + (ifname.empty() ? "" : " -i " + ifname) + " -j " + name;
    lines_ +=
        from_source({"", "/SEGMENT_DEPLOYED/" + json_pointer_token(place)}, append_rule(plan_.chain, jump));
    return true;
}

bool ChainScript::add_all_rules() {
    const Json::Value& rules = json_member(new_config_, "RULES");
    if (!rules.isNull() && !rules.isObject()) {
        return refuse("RULES");  // Without any rules, everything would pass.
    }
    for (const std::string& key : rules.getMemberNames()) {  // none of null
        const bool written = key == kSite ? add_rules(key, plan_.chain, rules[key])
                                          : add_segment(key, segment_name(plan_.chain, key), rules[key]);
        if (!written) {
            return false;
        }
    }
    return true;
}

int ChainScript::load(Json::Value& old_config, std::string& error) {
    if (!add_all_rules() || !plan_.deploy(*this)) {
        error = error_;
        return NM_ERR_SERVICE;
    }
    const std::string script = table_script(plan_.head, plan_.table, lines_);
    return exec_iptables_restore(script.c_str(), old_config, new_config_, plan_.chain, error);
}

int apply_chain(const ChainPlan& plan, Json::Value& old_config, Json::Value& new_config, std::string& error) {
    Json::Value device;
    const int ret = json_file_to_mem(kDeviceInfoPath, device);
    if (ret < 0) {
        NM_LOG(Error) << "json_file_to_mem fail. path = " << kDeviceInfoPath;
        return ret;
    }
    const LockGuard lock(kHostnameMap);
    if (lock.handle() < 0) {
        return lock.handle();
    }
    HostnameSets sets;
    (void)create_new_hostname_ipset(sets.map(), new_config);  // Rules of further names match any destination.
    ChainScript script(plan, device, sets.map(), old_config, new_config);
    const int result = script.load(old_config, error);
    if (result != NM_OK) {
        NM_LOG(Error) << plan.chain << " is not applied: " << error;
    }
    return result;
}

}  // namespace nm

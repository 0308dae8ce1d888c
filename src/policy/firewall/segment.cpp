// The sets of segments.
#include "policy/firewall/segment.h"

#include <vector>

#include "config/nmconfig.h"
#include "kernel/ipset.h"
#include "log.h"
#include "policy/common/packet_names.h"
#include "policy/common/presence.h"
#include "policy/firewall/firewall.h"
#include "result_codes.h"
#include "utils/containers.h"
#include "utils/json_text.h"
#include "utils/process.h"
#include "utils/shell_text.h"

namespace {

using Keys = std::vector<std::string>;

constexpr const char* kFirewall = "/etc/networkmanagement/firewall.json";
constexpr const char* kAppliedFirewall = "/var/run/network/firewall.curr";

Keys keys_of(const Json::Value& config) {
    return config.isObject() ? config.getMemberNames() : Keys();
}

/// A set's name stands in rules and in a pattern of awk, and others read both as plain text.
bool is_set_name(const std::string& set) {
    const bool valid = nm::is_plain(set) && set.find('/') == std::string::npos;
    if (!valid) {
        NM_LOG(Error) << "Bad segment name: " << set;
    }
    return valid;
}

bool ipset(const std::string& arguments) {
    return system_cmd(("/sbin/ipset " + arguments).c_str()) == NM_OK;
}

bool create_set(const std::string& set) {
    return ipset("create --exist " + set + " hash:net");
}

/// The number of networks that could not be added.
int fill_set(const std::string& set, const Json::Value& networks) {
    int failures = 0;
    for (const Json::Value& network : networks.isArray() ? networks : Json::Value::nullSingleton()) {
        const std::string member = network.isString() ? network.asString() : "";
        if (edit_ipset("add", set, member) != NM_OK) {
            NM_LOG(Error) << "Add ipset: " << set << " net " << member << " failed.";
            ++failures;
        }
    }
    return failures;
}

int add_segment(const std::string& set, const Json::Value& networks) {
    int failures = 0;
    if (!create_set(set)) {
        NM_LOG(Error) << "Add segment ipset: " << set << " failed.";
        ++failures;
    }
    return failures + fill_set(set, networks);
}

/// A set that rules name cannot be destroyed. Every rule goes whose text holds the set's name, so those of a
/// set whose name begins with this one go as well.
int remove_segment(const std::string& set, const Json::Value&) {
    (void)system_cmd(
        ("/sbin/iptables-save | /bin/awk '/" + set + "/{$1=\"-D\"; system(\"/sbin/iptables -t mangle \"$0)}'")
            .c_str());  // a rule that stays keeps the set
    if (ipset("destroy " + set)) {
        return 0;
    }
    NM_LOG(Error) << "Del segment ipset: " << set << " failed.";
    return 1;
}

int refill_segment(const std::string& set, const Json::Value& networks) {
    (void)ipset("flush " + set);  // logged by the networks, if there is no such set
    return fill_set(set, networks);
}

/// The number of failures over all keys.
int for_all(const Keys& keys, const Json::Value& config,
            int (*change)(const std::string&, const Json::Value&)) {
    int failures = 0;
    for (const std::string& key : keys) {
        const std::string set = nm::segment_name(nm::kSegmentSets, key);
        failures += is_set_name(set) ? change(set, nm::json_member(config, key)) : 1;
    }
    return failures;
}

int destroy_segment(const std::string& set, const Json::Value&) {
    (void)ipset("destroy " + set);  // one that could not be created is not there
    return 0;
}

/// The set ends up with the last network of its list.
int restore_segment(const std::string& set, const Json::Value& networks) {
    int failures = 0;
    for (const Json::Value& network : networks.isArray() ? networks : Json::Value::nullSingleton()) {
        (void)create_set(set);
        (void)ipset("flush " + set);
        failures += edit_ipset("add", set, network.isString() ? network.asString() : "") == NM_OK ? 0 : 1;
    }
    return failures;
}

/// The rules that went with a removed set come back with the firewall's document.
void restore_rules() {
    Json::Value new_config;
    Json::Value old_config;
    if (json_file_to_mem(kFirewall, new_config) < 0) {
        return;  // An empty document would empty the chain.
    }
    (void)json_file_to_mem(kAppliedFirewall, old_config);  // absent before the first apply
    std::string error;
    (void)setup_firewall(old_config, new_config, "mangle", nm::kVerdictChain, error);  // logged there
}

void roll_back(const Keys& added, const Json::Value& old_config) {
    (void)for_all(added, old_config, destroy_segment);
    const int failures = for_all(keys_of(old_config), old_config, restore_segment);
    if (failures != 0) {
        NM_LOG(Error) << "Restore failed: " << failures;
        return;
    }
    restore_rules();
}

}  // namespace

int setup_firewall_segment(Json::Value& old_config, Json::Value& new_config, std::string&) {
    NM_LOG(Debug) << "Enter";
    Keys before = keys_of(old_config);
    Keys after = keys_of(new_config);
    Keys added;
    Keys removed;
    (void)vector_diff(before, after, added, removed);  // always 0
    int failures = for_all(added, new_config, add_segment);
    failures += for_all(removed, old_config, remove_segment);
    failures += for_all(vector_intersection(before, after), new_config, refill_segment);
    if (failures != 0) {
        roll_back(added, old_config);
    }
    return NM_EXIT(NM_OK);
}

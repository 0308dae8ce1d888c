// The chain POLICY.
#include "policy/firewall/policy.h"

#include <cstdlib>

#include "config/nmconfig.h"
#include "kernel/marks.h"
#include "log.h"
#include "policy/common/packet_names.h"
#include "policy/common/restore_script.h"
#include "policy/common/rule_sources.h"
#include "policy/firewall/chain_script.h"
#include "result_codes.h"
#include "utils/json_text.h"

namespace {

constexpr const char* kQosPath = "/etc/networkmanagement/qos.json";
constexpr uint32_t kDefaultClass = 3;
constexpr int kAnyPorts = 0;

// The commands are found by PATH here, unlike everywhere else.
constexpr const char* kHead = "cat <<- EOF | iptables-restore -n 2>&1";

/// The stored one, null if there is none.
Json::Value stored_class() {
    Json::Value document;
    (void)json_file_to_mem(kQosPath, document);  // without it the default holds
    return nm::json_member(nm::json_member(document, "QOS"), "DEFAULT_CLASS");
}

uint32_t class_of(const Json::Value& value) {
    if (value.isString()) {
        return static_cast<uint32_t>(atoi(value.asCString()));
    }
    return value.isUInt() ? value.asUInt() : kDefaultClass;
}

/// Into the segment's chain, which is made where its rules have none so far. Nothing for a segment without
/// rules.
bool deploy_at(nm::ChainScript& script, const std::string& place, const Json::Value& segment) {
    const std::string ifname = script.device_of(place, kAnyPorts);
    if (ifname.empty() || segment.asString().empty()) {
        return true;
    }
    const std::string name = script.chain_of(segment);
    if (!name.empty()) {
        return script.add_jump(place, "", ifname, name);
    }
    const Json::Value& rules = nm::json_member(nm::json_member(script.config(), "RULES"), segment.asString());
    if (!rules.isArray() || rules.empty()) {
        return true;
    }
    const std::string own = nm::segment_name(nm::kClassChain, place);
    return script.add_segment(segment.asString(), own, rules) && script.add_jump(place, "", ifname, own);
}

bool deploy(nm::ChainScript& script) {
    const Json::Value& deployed = nm::json_member(script.config(), "SEGMENT_DEPLOYED");
    for (const std::string& place : script.places()) {
        if (deployed[place].isString() && !deploy_at(script, place, deployed[place])) {
            return false;
        }
    }
    return true;
}

}  // namespace

int setup_firewall_policy(Json::Value& old_config, Json::Value& new_config, std::string& error) {
    NM_LOG(Debug) << "Enter";
    const Json::Value stored = stored_class();
    const nm::RuleSource source =
        stored.isNull() ? nm::RuleSource{"", ""} : nm::RuleSource{kQosPath, "/QOS/DEFAULT_CLASS"};
    const std::string mark = nm::hex_mark(nm::marked(nm::kQosClass, class_of(stored)));
    const std::string first =
        nm::from_source(source, nm::append_rule(nm::kClassChain, nm::set_field(mark, nm::kQosClass.mask)));
    const nm::ChainPlan plan{kHead, "mangle", nm::kClassChain, false, first, deploy};
    return NM_EXIT(nm::apply_chain(plan, old_config, new_config, error));
}

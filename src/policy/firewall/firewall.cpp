// The chains FIREWALL and STEER.
#include "policy/firewall/firewall.h"

#include <optional>

#include "kernel/marks.h"
#include "log.h"
#include "policy/common/packet_names.h"
#include "policy/common/restore_script.h"
#include "policy/firewall/chain_script.h"
#include "result_codes.h"
#include "utils/json_text.h"

namespace {

constexpr int kLanPorts = 2;

/// A packet that has its verdict, or its port, is not judged again by a segment's rules.
std::string guard_of(const std::string& chain) {
    if (chain == nm::kSteeringChain) {
        return nm::unmarked_match(std::to_string(nm::kEgressPort.mask));
    }
    return chain == nm::kVerdictChain ? nm::unmarked_match(std::to_string(nm::kVerdict.mask)) : "";
}

bool deploy(nm::ChainScript& script) {
    const Json::Value& deployed = nm::json_member(script.config(), "SEGMENT_DEPLOYED");
    const std::string guard = guard_of(script.chain());
    const std::string site = script.chain_of(nm::json_member(deployed, "SITE"));
    if (!site.empty() && !script.add_jump("SITE", guard, "", site)) {
        return false;
    }
    for (const std::string& place : script.places()) {
        const std::string ifname = script.device_of(place, kLanPorts);
        const std::string name = script.chain_of(deployed[place]);
        if (!ifname.empty() && !name.empty() && !script.add_jump(place, guard, ifname, name)) {
            return false;
        }
    }
    return true;
}

/// What stands in the refused line, by a count that allows two lines for everything.
void name_culprit(int refused, const Json::Value& old_config, const Json::Value& new_config,
                  const std::string& chain, std::string& error) {
    int line = 2;
    line += 2 * static_cast<int>(nm::json_member(nm::json_member(old_config, "CHAIN_NAME"), chain).size());
    if (line > 2 && line >= refused) {
        error = chain + " flush old rules failed.";
        return;
    }
    const Json::Value& rules = nm::json_member(new_config, "RULES");
    for (const std::string& key : rules.isObject() ? rules.getMemberNames() : Json::Value::Members()) {
        if (!rules[key].isArray()) {
            return;
        }
        line += 1;
        for (Json::ArrayIndex i = 1; i <= rules[key].size(); ++i) {
            line += 2;
            if (line >= refused) {
                error = chain + " " + key + " rule" + std::to_string(i) + " failed.";
                return;
            }
        }
    }
}

}  // namespace

int setup_firewall(Json::Value& old_config, Json::Value& new_config, std::string table, std::string chain,
                   std::string& error) {
    NM_LOG(Debug) << "Enter";
    const nm::ChainPlan plan{nm::kReportingRestoreIp4, std::move(table), std::move(chain), true, "", deploy};
    return NM_EXIT(nm::apply_chain(plan, old_config, new_config, error));
}

int exec_iptables_restore(const char* script, Json::Value& old_config, Json::Value& new_config,
                          const std::string& chain, std::string& error) {
    NM_LOG(Debug) << "Enter";
    const std::optional<int> refused = nm::refused_line(script);
    if (!refused) {
        return NM_EXIT(NM_OK);
    }
    if (*refused > 0) {
        name_culprit(*refused, old_config, new_config, chain, error);
    }
    return NM_EXIT(NM_ERR_SERVICE);
}

// The apply of one top chain (FIREWALL, STEER, POLICY) with the chains of its segments: one script, loaded in
// one step under the lock of the host names' map.
#pragma once

#include <json/value.h>

#include <set>
#include <string>
#include <vector>

#include "policy/common/presence.h"
#include "policy/firewall/rule_text.h"

namespace nm {

class ChainScript;

/// In what the applies differ.
struct ChainPlan {
    const char* head;  ///< of the script
    std::string table;
    std::string chain;
    bool matches_segments;
    std::string first_rule;               ///< a line that stands before those of the document, or nothing
    bool (*deploy)(ChainScript& script);  ///< adds the jumps into the chains of segments
};

/// The lines of a script while they are written. What cannot be written ends the apply: the functions that
/// add lines return false then.
class ChainScript {
public:
    ChainScript(const ChainPlan& plan, const Json::Value& device, const HostnameMap& hostnames,
                const Json::Value& old_config, Json::Value& new_config);

    /// Adds all lines and loads them. 0, or NM_ERR_SERVICE with `error` naming what was refused.
    int load(Json::Value& old_config, std::string& error);

    const std::string& chain() const { return plan_.chain; }
    const Json::Value& config() const { return new_config_; }

    /// The places where segments are deployed, but for the whole site.
    std::vector<std::string> places() const;

    /// The device of a place: of a port ("PORT3"), looked up as get_ifname() does by `mode`, or of a VLAN;
    /// empty if there is none.
    std::string device_of(const std::string& place, int mode) const;

    /// The chain of a segment's key, as the new document's `CHAIN_NAME` has it; empty if there is none.
    std::string chain_of(const Json::Value& key) const;

    /// Makes `name` the chain of the segment `key`, in the document and, if the kernel has none, in the
    /// script, and fills it.
    bool add_segment(const std::string& key, const std::string& name, const Json::Value& rules);

    /// Appends to the top chain the jump to `name`, which is deployed at `place`, for what `match` (which
    /// begins with a blank, or is empty) and the input device `ifname` (any if empty) meet.
    bool add_jump(const std::string& place, const std::string& match, const std::string& ifname,
                  const std::string& name);

private:
    bool refuse(const std::string& culprit);
    void flush_old_chains(const Json::Value& old_config);
    bool add_rules(const std::string& key, const std::string& name, const Json::Value& rules);
    bool add_all_rules();

    const ChainPlan& plan_;
    Json::Value& new_config_;
    RuleWriter writer_;
    Presence present_;
    std::set<std::string> created_;
    std::string lines_;
    std::string error_;
};

/// Applies the new document in place of the old one. 0; the code of reading the device document; that of the
/// lock; NM_ERR_SERVICE with `error` naming the rule that was refused.
int apply_chain(const ChainPlan& plan, Json::Value& old_config, Json::Value& new_config, std::string& error);

}  // namespace nm

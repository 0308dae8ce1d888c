// The steps of a packet's way: what the trace reports, with the rules' texts, sets and writes of the mark.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "inspect/packet_probe.h"
#include "inspect/rule_origin.h"
#include "inspect/world.h"

namespace nm {

/// What the packet was like when it came to a hook.
struct HookState {
    std::string hook;
    Flow flow;
    uint32_t mark = 0;
    uint32_t out = 0;  ///< index of the device that it is to leave by, 0 where that is not decided
};

/// The steps in their order, without their sources yet. A rule whose text is not known has none.
struct Steps {
    Json::Value list = Json::arrayValue;
    std::vector<PlacedRule> rules = {};  ///< of each step; the text is empty where it is not a rule
    std::vector<HookState> states = {};
    uint32_t mark = 0;      ///< at the end
    Json::Value drop = {};  ///< the step that dropped the packet, null if none did
};

/// `chains` are those of the device, as describe_world() has them. To be called while the chains of the copy
/// are as they were when the packet was sent.
Steps make_steps(const TraceEvents& events, const Flow& flow, const Things& chains);

/// The fields of the mark that differ between two marks: objects with `field`, `before` and `after`.
Json::Value mark_changes(uint32_t before, uint32_t after);

/// The fields of a mark that are not 0: objects with `field`, `bits` and `value`.
Json::Value mark_fields(uint32_t mark);

/// The sets that a rule's text asks for: objects with `set`, `directions` and `is_negated`.
Json::Value sets_of(const std::string& rule);

}  // namespace nm

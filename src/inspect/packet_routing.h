// The routing decision about a packet: the kernel's answer, and which of the rules of the policy routing led
// to it.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

#include "inspect/packet_flow.h"

namespace nm {

/// What the decision depends on. `device` is the one that the packet came in by, empty for one of the
/// device's own.
struct RoutingQuestion {
    Flow flow;
    uint32_t mark = 0;
    std::string device;
};

/// Asks the kernel of this network. An object with `rule` (priority, text, source), `table`, `route` and
/// `device`, and the `source` of the route; `refusal` in the place of them where it has none.
/// `device_document` says where the addressing of devices is stored.
Json::Value ask_routing(const RoutingQuestion& question, const Json::Value& device_document);

/// Whether a rule of `ip -json rule` is for the packet.
bool is_rule_for(const Json::Value& rule, const RoutingQuestion& question);

}  // namespace nm

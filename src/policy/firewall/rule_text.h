// Rules as lines for iptables-restore(8).
#pragma once

#include <json/value.h>

#include <optional>
#include <string>
#include <unordered_map>

#include "policy/common/named_services.h"
#include "policy/common/presence.h"
#include "policy/firewall/firewall_rule.h"

namespace nm {

using HostnameMap = std::unordered_map<std::string, std::string>;

/// What the rules of one apply are written with.
struct RuleWriter {
    const Json::Value& device;
    const HostnameMap& hostnames;
    bool matches_segments;
    Presence present;
    NamedServices services{};

    /// The lines of a rule of a document, empty for one that makes none; nothing, which is logged, if a value
    /// cannot stand in a rule.
    std::optional<std::string> write(const Json::Value& rule, const std::string& chain);

    /// The same for a rule that names no services.
    std::optional<std::string> write_with_ports(const Json::Value& rule, const std::string& chain);

    /// The line of a parsed rule, by the same terms.
    std::optional<std::string> write_line(const firewall_rule& rule, const std::string& chain);
};

}  // namespace nm

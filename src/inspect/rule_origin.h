// Where the rules of chains come from: an entry of a document, the base rules, or nobody of this system.
#pragma once

#include <json/value.h>

#include <map>
#include <string>
#include <vector>

#include "inspect/world.h"
#include "policy/common/rule_sources.h"

namespace nm {

/// A rule of a chain ("IPv4 mangle FIREWALL"), as `iptables-save` shows it, and which one of those with the
/// same text it is.
struct PlacedRule {
    std::string chain;
    std::string text;
    size_t occurrence = 0;
};

/// The `source` of a rule in a report: `owner`, and `document` and `pointer` where there are some.
Json::Value rule_source(const std::string& owner, const std::string& document = "",
                        const std::string& pointer = "");

/// The pointer to the addressing of an interface in the device document, empty if it has none.
std::string interface_pointer(const Json::Value& device, const std::string& ifname);

/// The key and the section of the port whose `INTERFACE` is this, as a pointer; empty if there is none.
std::string port_pointer(const Json::Value& device, const std::string& ifname);

/// For the play of a rehearsal, in the copy, whose chains are lost by it: writes the chains that are asked
/// for anew from the stored documents, and learns which entry makes which rule.
class RuleOrigins {
public:
    explicit RuleOrigins(const Json::Value& device) : device_(device) {}

    /// Those of the rules in these chains can be told from now on.
    void learn(const std::vector<std::string>& chains);

    Json::Value find(const PlacedRule& rule) const;

    /// The documents whose rules could not be written anew, and why.
    const std::map<std::string, std::string>& faults() const { return faults_; }

private:
    struct Origin {
        std::string document;
        std::string pointer;
    };

    void write_anew(const std::vector<std::string>& chains);
    void keep(const std::string& chain, std::string line, const RuleSources& sources);
    Json::Value find_base(const PlacedRule& rule) const;
    Json::Value find_made(const PlacedRule& rule) const;
    Json::Value find_by_device(const PlacedRule& rule) const;

    const Json::Value& device_;
    Things base_;
    std::map<std::string, std::map<std::string, std::vector<Origin>>> made_;
    std::map<std::string, std::string> faults_;
};

}  // namespace nm

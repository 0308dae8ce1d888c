// Where generated rules come from. While somebody listens, each line that a generator appends to a chain
// carries a number in a comment, by which the loaded rule is known again, whatever a restore command makes of
// its text; else the lines are as they are.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace nm {

/// An entry of a document. `port_interface`, where it is not empty, is the `INTERFACE` of the port below
/// `pointer` that is meant. An empty `document` is the one that is being applied.
struct RuleSource {
    std::string document;
    std::string pointer;
    std::string port_interface = {};
};

/// Listens for the life of the object, alone.
class RuleSources {
public:
    RuleSources();
    ~RuleSources();
    RuleSources(const RuleSources&) = delete;
    RuleSources& operator=(const RuleSources&) = delete;

    /// The source that a rule carries, which is taken out of it (as iptables-save(8) shows it); null if it
    /// has none.
    const RuleSource* take(std::string& rule) const;

private:
    friend std::string from_source(const RuleSource& source, const std::string& lines);
    std::vector<RuleSource> sources_;
};

/// The lines, those among them that append a rule with their source if somebody listens.
std::string from_source(const RuleSource& source, const std::string& lines);

}  // namespace nm

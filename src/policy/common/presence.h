// What the kernel has of the sets and chains that rules name. A rule that names a missing one sinks its whole
// script, and thousands of rules name the same few: each name is asked for once in the life of the object.
#pragma once

#include <string>
#include <unordered_map>

namespace nm {

/// The answers of one apply.
class Presence {
public:
    /// Whether there is an ipset of this name.
    bool has_set(const std::string& name);

    /// Creates this ipset of single addresses, empty, unless there is one of whatever kind.
    void make_set(const std::string& name);

    /// Whether the table of iptables has this chain.
    bool has_chain(const std::string& table, const std::string& chain);

private:
    bool ask(const std::string& command, const std::string& name, const char* output);

    std::unordered_map<std::string, bool> answers_;
};

/// The name of what belongs to a segment: `prefix`, "-" and the key up to its first "-". Keys that differ
/// behind it share a set and a chain.
std::string segment_name(const std::string& prefix, const std::string& key);

}  // namespace nm

// The words of rules as the restore commands read them.
#pragma once

#include <string>

namespace nm {

/// One address, network or range "A-B", or a list of the first two with commas.
bool is_rule_address(const std::string& text);

/// A port, a range "A-B" or "A:B", or a list with commas of at most 15 ports, a range counting as two. Names
/// of /etc/services are ports. Either end of a range may be left out, but not among ports that are matched as
/// a list.
bool is_rule_ports(const std::string& text, bool is_list);
inline bool is_rule_ports(const std::string& text) {
    return is_rule_ports(text, text.find(',') != std::string::npos);
}

/// A name of /etc/protocols, a number, or "all".
bool is_rule_protocol(const std::string& text);

/// Whether a rule of the protocol may name these ports; of "all" it may, as it becomes two. A list is matched
/// for numbers of protocols as well, a single port or range by the protocol's own match, which has its name.
bool has_ports(const std::string& protocol, const std::string& ports);

}  // namespace nm

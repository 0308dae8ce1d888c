// The words of rules as the restore commands read them.
#pragma once

#include <string>

namespace nm {

/// One address, network or range "A-B", or a list of the first two with commas.
bool is_rule_address(const std::string& text);

/// A port, a range "A-B" or "A:B", or a list with commas of at most 15 ports, a range counting as two. Names
/// of /etc/services are ports.
bool is_rule_ports(const std::string& text);

/// A name of /etc/protocols, a number, or "all".
bool is_rule_protocol(const std::string& text);

/// Whether rules of the protocol may name ports; of "all" they may, they become two.
bool has_ports(const std::string& protocol);

}  // namespace nm

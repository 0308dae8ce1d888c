// The units of the network configuration, as systemd has them.
#pragma once

#include <string>
#include <vector>

namespace nm {

struct ListedUnit {
    std::string name;   // with ".service"
    std::string state;  // "active", "failed", ...
};

/// The services called nm-..., and those of `others`, words of ours. The reason why they cannot be listed,
/// empty if they are.
std::string list_units(const std::vector<std::string>& others, std::vector<ListedUnit>& units);

}  // namespace nm

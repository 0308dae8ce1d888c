// The state of a device's network at one moment, by domains, and what differs between two moments.
#pragma once

#include <json/value.h>

#include <map>
#include <string>
#include <vector>

namespace nm {

using Lines = std::vector<std::string>;

/// Things by name, each with the lines that describe it: a link, a table of routes, a chain, a file.
using Things = std::map<std::string, Lines>;

/// The domains in the order of reports.
enum class Domain { Link, Address, Route, Rule, Set, Chain, Setting, Condition, File, Unit };

using World = std::map<Domain, Things>;

const char* domain_name(Domain domain);

/// In the order of reports.
std::vector<Domain> all_domains();

/// What the commands of the kernel's tools print, and what is read of /proc. IPv4 comes first.
struct WorldSource {
    Json::Value devices;
    std::string routes[2];
    std::string rules[2];
    std::string sets;
    std::string chains[2];
    Things settings;
    Things conditions;
};

/// What `ip route restore` and `ip rule restore` take, for a copy.
struct RouteDumps {
    std::string routes[2];
    std::string rules[2];
};

/// Throws std::runtime_error where they cannot be had.
RouteDumps read_route_dumps();

/// The parts that belong to the network namespace of this process. Throws std::runtime_error where one cannot
/// be read; a program of filters or sets that is not there has nothing to show.
WorldSource read_world_source();

/// They, described. What moves by itself is left out: counters, times, carriers, seeds of hashes.
World describe_world(const WorldSource& source);

/// The units of ours that are active. Where they cannot be listed there are none, for the `reason`.
Things read_units(std::string* reason = nullptr);

/// An object of the domains' names, each with an object of things and their lines; and back.
Json::Value world_to_json(const World& world);
World world_from_json(const Json::Value& state);

/// Adds what `after` has otherwise to `changes`, an array: objects with `domain`, `name`, `change` (created,
/// removed or changed) and the lines `removed` and `added`.
void append_differences(const World& before, const World& after, Json::Value& changes);

/// The lines that one text has and the other has not, in their order.
struct LineDifference {
    Lines removed;
    Lines added;
};

LineDifference compare_lines(const Lines& before, const Lines& after);

}  // namespace nm

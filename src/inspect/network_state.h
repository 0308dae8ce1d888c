// The state of the device's network as a whole: read at one moment, and compared with another.
#pragma once

#include <json/value.h>

#pragma GCC visibility push(default)

/// Reads links, addresses, routes, rules, sets, chains, settings, conditions, the files that set-ups write
/// and the active units of ours. `state` becomes an object by domain, then by thing, with lists of lines.
/// What moves by itself is left out: counters, times, carriers. Secrets are in it as they are.
/// Throws std::runtime_error if the network cannot be read whole.
void read_network_state(Json::Value& state);

/// What `after` has otherwise than `before`, two states: a list of objects with `domain`, `name`, `change`
/// (created, removed or changed) and the lines `removed` and `added`, as in plan.json of
/// /usr/share/networkmanagement/schema/.
Json::Value compare_network_states(const Json::Value& before, const Json::Value& after);

#pragma GCC visibility pop

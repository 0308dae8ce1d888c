// The state of the network as JSON.
#include "inspect/network_state.h"

#include "inspect/world.h"
#include "inspect/world_files.h"

namespace {

using nm::Domain;

Json::Value to_json(const nm::Things& things) {
    Json::Value object(Json::objectValue);
    for (const auto& [name, lines] : things) {
        Json::Value& list = object[name] = Json::arrayValue;
        for (const std::string& line : lines) {
            list.append(line);
        }
    }
    return object;
}

nm::Things from_json(const Json::Value& object) {
    nm::Things things;
    for (auto thing = object.begin(); thing != object.end(); ++thing) {
        nm::Lines& lines = things[thing.name()];
        for (const Json::Value& line : *thing) {
            lines.push_back(line.asString());
        }
    }
    return things;
}

nm::World from_state(const Json::Value& state) {
    nm::World world;
    for (const Domain domain : nm::all_domains()) {
        world[domain] = from_json(state[nm::domain_name(domain)]);
    }
    return world;
}

}  // namespace

void read_network_state(Json::Value& state) {
    nm::World world = nm::describe_world(nm::read_world_source());
    world[Domain::File] = nm::read_files();
    world[Domain::Unit] = nm::read_units();
    state = Json::objectValue;
    for (const auto& [domain, things] : world) {
        state[nm::domain_name(domain)] = to_json(things);
    }
}

Json::Value compare_network_states(const Json::Value& before, const Json::Value& after) {
    Json::Value changes(Json::arrayValue);
    nm::append_differences(from_state(before), from_state(after), changes);
    return changes;
}

// The state of the network as JSON.
#include "inspect/network_state.h"

#include "inspect/world.h"
#include "inspect/world_files.h"

using nm::Domain;

void read_network_state(Json::Value& state) {
    nm::World world = nm::describe_world(nm::read_world_source());
    world[Domain::File] = nm::read_files();
    world[Domain::Unit] = nm::read_units();
    state = nm::world_to_json(world);
}

Json::Value compare_network_states(const Json::Value& before, const Json::Value& after) {
    Json::Value changes(Json::arrayValue);
    nm::append_differences(nm::world_from_json(before), nm::world_from_json(after), changes);
    return changes;
}

// A world as JSON: an object for each domain, with the lines of each thing.
#include "inspect/world.h"

namespace nm {

namespace {

Json::Value to_json(const Things& things) {
    Json::Value object(Json::objectValue);
    for (const auto& [name, lines] : things) {
        Json::Value& list = object[name] = Json::arrayValue;
        for (const std::string& line : lines) {
            list.append(line);
        }
    }
    return object;
}

Things from_json(const Json::Value& object) {
    Things things;
    for (auto thing = object.begin(); thing != object.end(); ++thing) {
        Lines& lines = things[thing.name()];
        for (const Json::Value& line : *thing) {
            lines.push_back(line.asString());
        }
    }
    return things;
}

}  // namespace

Json::Value world_to_json(const World& world) {
    Json::Value state(Json::objectValue);
    for (const auto& [domain, things] : world) {
        state[domain_name(domain)] = to_json(things);
    }
    return state;
}

World world_from_json(const Json::Value& state) {
    World world;
    for (const Domain domain : all_domains()) {
        world[domain] = from_json(state[domain_name(domain)]);
    }
    return world;
}

}  // namespace nm

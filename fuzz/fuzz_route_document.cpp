// Foreign bytes as a document of static routes: whatever is read from it has a network and a next hop.
#include <exception>

#include "policy/routes/static_route.h"
#include "target.h"
#include "utils/json_text.h"

bool holds(const std::string& input) {
    Json::Value config, device, gateways;
    gateways["lo"]["ip4_gw"] = "192.0.2.1", gateways["br_v12"]["ip6_gw"] = "2001:db8::1";
    device["WAN_PORT"]["PORT1"]["INTERFACE"] = "lo";
    if (!nm::parse_json(input, config) || migrate_static_route(config, "") != 0 ||
        migrate_static_route6(config, "") != 0) {
        return true;
    }
    bool sound = true;
    for (const auto parse : {parse_route, parse_route6}) {
        sroute* routes = nullptr;
        std::size_t count = 0;
        try {
            count = parse(config[parse == parse_route ? "STATIC_ROUTE" : "staticRoute6"], device, gateways,
                          &routes);
        } catch (const std::exception&) {
        }
        for (std::size_t i = 0; i < count; ++i)
            sound = sound && routes[i].prefix >= 1 && (routes[i].oif != 0 || routes[i].has_gw);
        free(routes);
    }
    return sound;
}

// The readers of static routes: an element of a document becomes raw addresses and an interface index.
#include <arpa/inet.h>
#include <net/if.h>

#include <cstdlib>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>

#include "config/port_lookup.h"
#include "log.h"
#include "policy/routes/static_route.h"
#include "utils/json_text.h"

namespace {

constexpr int kEverywhere = 0;  // mode of get_ifname(): ports of all kinds

struct FreeDeleter {
    void operator()(sroute* routes) const { free(routes); }
};
using RouteArray = std::unique_ptr<sroute, FreeDeleter>;

/// What the next hops of a document are resolved with.
struct Surroundings {
    const Json::Value& device;
    const Json::Value& gateways;
};

void require(bool holds, const char* words) {
    if (!holds) {
        throw std::invalid_argument(words);
    }
}

/// -1 for what is not a number; a text that is none throws.
int number_of(const Json::Value& value) {
    if (value.isString()) {
        return std::stoi(value.asString());
    }
    return value.isInt() ? value.asInt() : -1;
}

uint32_t metric_of(const Json::Value& value) {
    if (value.isString()) {
        return static_cast<uint32_t>(std::stoul(value.asString(), nullptr, 10));
    }
    return value.isUInt() ? value.asUInt() : 0;
}

uint8_t prefix_of(const Json::Value& value, int longest, const char* words) {
    const int prefix = number_of(value);
    require(prefix >= 1 && prefix <= longest, words);
    return static_cast<uint8_t>(prefix);
}

void read_destination(const Json::Value& value, sroute& route, const char* words) {
    require(value.isString() && inet_pton(route.family, value.asCString(), route.dst) == 1, words);
}

void set_gateway(const std::string& text, sroute& route, const char* words) {
    require(inet_pton(route.family, text.c_str(), route.gw) == 1, words);
    route.has_gw = true;
}

/// The gateway that the device has at present, if it has one of the route's family.
void inherit_gateway(const Json::Value& gateways, const std::string& device, const char* key, sroute& route) {
    const std::string text = nm::json_string_or(nm::json_member(gateways, device), key, "");
    if (!text.empty() && inet_pton(route.family, text.c_str(), route.gw) == 1) {
        route.has_gw = true;
    }
}

void leave_by_port(const std::string& portname, const Surroundings& around, sroute& route) {
    const std::string device = get_ifname(around.device, portname, kEverywhere);
    route.oif = if_nametoindex(device.c_str());
    if (route.oif != 0) {
        inherit_gateway(around.gateways, device, "ip4_gw", route);
    }
}

void leave_by_address(const Json::Value& element, sroute& route) {
    const std::string gateway = nm::json_string_or(element, "NEXTHOP_ADDRESS", "");
    if (!gateway.empty()) {
        set_gateway(gateway, route, "invalid NEXTHOP_ADDRESS");
    }
    const std::string device = nm::json_string_or(element, "NEXTHOP_INTERFACE", "");
    if (!device.empty()) {
        route.oif = if_nametoindex(device.c_str());
    }
}

void read_next_hop(const Json::Value& element, const Surroundings& around, sroute& route) {
    for (const char* key : {"NEXTHOP_WAN", "NEXTHOP_RGLINK"}) {
        const Json::Value& port = nm::json_member(element, key);
        if (port.isString()) {
            leave_by_port(port.asString(), around, route);
            return;
        }
    }
    leave_by_address(element, route);
}

bool drop(const Json::Value& element) {
    NM_LOG(Error) << "static route has no usable next hop: " << nm::show_json(element);
    return false;
}

/// Whether the element gives a route.
bool parse_element(const Json::Value& element, const Surroundings& around, sroute& route) {
    require(element.isObject(), "is not a object");
    const Json::Value& action = nm::json_member(element, "ACTION");
    require(action.isString(), "no ACTION");
    if (action.asString() != "ENABLE") {
        return false;
    }
    constexpr int kIp6 = 6;
    route.family = number_of(nm::json_member(element, "FAMILY")) == kIp6 ? AF_INET6 : AF_INET;
    read_destination(nm::json_member(element, "IP"), route, "invalid IP");
    route.prefix = prefix_of(nm::json_member(element, "NETMASK"), 32, "invalid NETMASK");
    read_next_hop(element, around, route);
    if (route.oif == 0 && !route.has_gw) {
        return drop(element);
    }
    route.metric = metric_of(nm::json_member(element, "METRIC"));
    return true;
}

/// A next hop that is not a port is the number of a VLAN, whose bridge is meant.
void read_next_hop6(const Json::Value& element, const Surroundings& around, sroute& route) {
    const Json::Value& name = nm::json_member(element, "nextHopInterface");
    if (name.isString()) {
        const std::string text = name.asString();
        const std::string device = text.find("PORT") != std::string::npos
                                       ? get_ifname(around.device, text, kEverywhere)
                                       : "br_v" + text;
        route.oif = if_nametoindex(device.c_str());
        inherit_gateway(around.gateways, device, "ip6_gw", route);
    }
    const std::string gateway = nm::json_string_or(element, "nextHopIp", "");
    if (!gateway.empty()) {
        set_gateway(gateway, route, "invalid nextHopIp");
    }
}

bool parse_element6(const Json::Value& element, const Surroundings& around, sroute& route) {
    require(element.isObject(), "is not a object");
    const Json::Value& enable = nm::json_member(element, "enable");
    require(enable.isBool(), "no enable action!");
    if (!enable.asBool()) {
        return false;
    }
    route.family = AF_INET6;
    read_destination(nm::json_member(element, "destination"), route, "invalid destination IPv6 address!");
    route.prefix = prefix_of(nm::json_member(element, "prefixLength"), 128, "invalid IPv6 prefix");
    read_next_hop6(element, around, route);
    if (route.oif == 0 || !route.has_gw) {
        return drop(element);
    }
    route.metric = metric_of(nm::json_member(element, "metric"));
    return true;
}

size_t parse_list(const Json::Value& routes, const Surroundings& around, sroute** out,
                  bool (*parse)(const Json::Value&, const Surroundings&, sroute&)) {
    require(routes.isArray() || routes.isNull(), "is not a array");
    const size_t room = routes.empty() ? 1 : routes.size();
    RouteArray list(static_cast<sroute*>(calloc(room, sizeof(sroute))));
    if (list == nullptr) {
        throw std::bad_alloc();
    }
    size_t count = 0;
    for (const Json::Value& element : routes) {
        sroute route{};
        if (parse(element, around, route)) {
            list.get()[count++] = route;
        }
    }
    *out = list.release();
    return count;
}

}  // namespace

size_t parse_route(Json::Value& routes, Json::Value& device, Json::Value& gateways, sroute** out) {
    return parse_list(routes, {device, gateways}, out, parse_element);
}

size_t parse_route6(Json::Value& routes, Json::Value& device, Json::Value& gateways, sroute** out) {
    return parse_list(routes, {device, gateways}, out, parse_element6);
}

// Static routes: destinations, next hops and what they refer to.
#include <arpa/inet.h>

#include <map>

#include "config/migration.h"
#include "config/port_lookup.h"
#include "inspect/checks.h"
#include "inspect/formats.h"
#include "kernel/vlan.h"
#include "utils/ip_text.h"
#include "utils/json_text.h"

namespace nm {

namespace {

constexpr int kEverywhere = 0;  // mode of get_ifname(): ports of all kinds

/// A list of routes on its way through the checks.
struct RouteCheck {
    const Json::Value& device;
    Findings& findings;
    bool is_current;  // an older document is completed before it is applied
    std::map<std::string, Json::ArrayIndex> seen;

    void ip4(const Place& place, Json::ArrayIndex index, const Json::Value& route);
    void ip6(const Place& place, Json::ArrayIndex index, const Json::Value& route);
    void once(const Place& place, Json::ArrayIndex index, const std::string& route);
    bool port(const Place& place, const Json::Value& route, const char* key) const;
    void way_out(const Place& place, const Json::Value& route) const;
};

std::string text_at(const Json::Value& route, const char* key) {
    return json_scalar(json_member(route, key));
}

/// The kernel refuses the second one, which is passed over.
void RouteCheck::once(const Place& place, Json::ArrayIndex index, const std::string& route) {
    const auto first = seen.try_emplace(route, index);
    if (!first.second) {
        findings.warn(place, "route " + std::to_string(first.first->second + 1) + " is the same",
                      "another destination, or another metric");
    }
}

/// Whether the member names a port; the others are not looked at then.
bool RouteCheck::port(const Place& place, const Json::Value& route, const char* key) const {
    const Json::Value& name = json_member(route, key);
    if (!name.isString()) {
        return false;
    }
    if (device.isObject() && get_ifname(device, name.asString(), kEverywhere).empty()) {
        findings.error(place / key,
                       show_value(place / key, name) + " is not a port, and the route is left out",
                       "the name of a port", kDevice);
    }
    return true;
}

void RouteCheck::way_out(const Place& place, const Json::Value& route) const {
    if (port(place, route, "NEXTHOP_WAN") || port(place, route, "NEXTHOP_RGLINK")) {
        return;
    }
    const bool is_ip6 = leading_number(text_at(route, "FAMILY")) == 6;
    const std::string gateway = json_string_or(route, "NEXTHOP_ADDRESS", "");
    if (!gateway.empty() && !has_format(is_ip6 ? "ipv6" : "ipv4", gateway)) {
        findings.error(place / "NEXTHOP_ADDRESS", show_value(place, gateway) + " is not valid",
                       is_ip6 ? "an IPv6 address" : "an IPv4 address");
    }
    if (gateway.empty() && json_string_or(route, "NEXTHOP_INTERFACE", "").empty()) {
        findings.error(place, "the route has no next hop, and is left out",
                       "NEXTHOP_WAN, NEXTHOP_RGLINK, NEXTHOP_ADDRESS or NEXTHOP_INTERFACE");
    }
}

void RouteCheck::ip4(const Place& place, Json::ArrayIndex index, const Json::Value& route) {
    if (!route.isMember("ACTION") && is_current) {
        findings.error(place / "ACTION", "ACTION is missing", "ENABLE or DISABLE");
        return;
    }
    const bool is_ip6 = leading_number(text_at(route, "FAMILY")) == 6;
    const Json::Value& address = json_member(route, "IP");
    if (text_at(route, "ACTION") == "DISABLE") {
        return;
    }
    if (route.isMember("ACTION") && text_at(route, "ACTION") != "ENABLE") {
        findings.warn(place / "ACTION", "the route is left out", "ENABLE or DISABLE");
        return;
    }
    if (address.isString() && !has_format(is_ip6 ? "ipv6" : "ipv4", address.asString())) {
        findings.error(place / "IP", show_value(place / "IP", address) + " is not valid",
                       is_ip6 ? "an IPv6 address" : "an IPv4 address");
    }
    const std::string family = text_at(route, "FAMILY");
    if (json_member(route, "FAMILY").isString() && family.find_first_of("0123456789") == std::string::npos) {
        findings.error(place / "FAMILY", show_value(place / "FAMILY", family) + " is not valid", "4 or 6");
    }
    way_out(place, route);
    once(place, index,
         text_at(route, "IP") + "/" + text_at(route, "NETMASK") + " " + text_at(route, "METRIC"));
}

/// A route needs a device and a gateway; that of an uplink may come with its lease.
void RouteCheck::ip6(const Place& place, Json::ArrayIndex index, const Json::Value& route) {
    const Json::Value& enable = json_member(route, "enable");
    if (!route.isMember("enable") && is_current) {
        findings.error(place / "enable", "enable is missing", "true or false");
        return;
    }
    if (enable.isBool() && !enable.asBool()) {
        return;
    }
    const std::string way = json_string_or(route, "nextHopInterface", "");
    const bool is_port = way.find("PORT") != std::string::npos;
    const bool is_known =
        is_port ? !get_ifname(device, way, kEverywhere).empty() : !get_vlan_ifname(device, way).empty();
    if (!is_known && (device.isObject() || way.empty())) {
        findings.error(place / "nextHopInterface",
                       way.empty() ? "nextHopInterface is missing, and the route is left out"
                                   : way + " is neither a port nor a VLAN, and the route is left out",
                       "the name of a port or the id of a VLAN", kDevice);
    } else if (!is_port && json_string_or(route, "nextHopIp", "").empty()) {
        findings.error(place / "nextHopIp", "the route has no gateway, and is left out", "an IPv6 address");
    }
    once(place, index,
         text_at(route, "destination") + "/" + text_at(route, "prefixLength") + " " +
             text_at(route, "metric"));
}

}  // namespace

void check_routes(const DocumentSet& documents, Findings& findings) {
    struct Family {
        const char* document;
        const char* list;
        void (RouteCheck::*check)(const Place& place, Json::ArrayIndex index, const Json::Value& route);
    };
    constexpr Family kFamilies[] = {{"static_route", "STATIC_ROUTE", &RouteCheck::ip4},
                                    {"static_route6", "staticRoute6", &RouteCheck::ip6}};
    for (const Family& family : kFamilies) {
        const Json::Value& root = documents.root(family.document);
        const bool is_current =
            compare_versions(document_version(family.document, root), format_version(family.document)) >= 0;
        RouteCheck check{documents.root(kDevice), findings, is_current, {}};
        const Json::Value& routes = json_member(root, family.list);
        for (Json::ArrayIndex i = 0; routes.isArray() && i < routes.size(); ++i) {
            if (routes[i].isObject()) {
                (check.*family.check)(Place{family.document, ""} / family.list / i, i, routes[i]);
            }
        }
    }
}

}  // namespace nm

// Stored static routes brought to the current format.
#include <arpa/inet.h>

#include <array>
#include <cstdlib>
#include <optional>
#include <string>

#include "config/migration.h"
#include "log.h"
#include "policy/routes/static_route.h"
#include "result_codes.h"
#include "utils/ip_text.h"
#include "utils/json_text.h"

namespace {

/// How a list is written: its member of the document, its words in the log, and the members of an element.
struct RouteFormat {
    const char* list;
    const char* title;
    const char* name;
    const char* action;
    const char* enabled;  ///< value of an enabled `action`, null for a true
    const char* address;
    const char* prefix;
    std::array<const char*, 11> kept;  ///< the members of an element that are kept; none stands for all
};

constexpr RouteFormat kIp4Format{"STATIC_ROUTE",
                                 "static route",
                                 "static_route",
                                 "ACTION",
                                 "ENABLE",
                                 "IP",
                                 "NETMASK",
                                 {"DESCRIPTION", "ACTION", "FAMILY", "IP", "NETMASK", "METRIC", "SHARED",
                                  "NEXTHOP_ADDRESS", "NEXTHOP_WAN", "NEXTHOP_RGLINK", "NEXTHOP_INTERFACE"}};
constexpr RouteFormat kIp6Format{"staticRoute6", "static route6", "static_route6", "enable",
                                 nullptr,        "destination",   "prefixLength",  {}};

Json::Value rebuilt(const RouteFormat& format, const Json::Value& route) {
    Json::Value kept = format.kept[0] == nullptr ? route : Json::Value(Json::objectValue);
    for (const char* key : format.kept) {
        if (key != nullptr && route.isMember(key)) {
            kept[key] = route[key];
        }
    }
    if (!kept.isMember(format.action)) {
        kept[format.action] = format.enabled != nullptr ? Json::Value(format.enabled) : Json::Value(true);
    }
    return kept;
}

/// The network address as text; nothing for what is no address or no prefix of its family. An IPv4 address
/// is worked as the last four bytes of an IPv6 one.
std::optional<std::string> network_of(const std::string& address, const std::string& prefix_text) {
    const bool is_ip6 = address.find(':') != std::string::npos;
    const int family = is_ip6 ? AF_INET6 : AF_INET;
    const int before = is_ip6 ? 0 : 12;
    const int prefix = atoi(prefix_text.c_str()) + 8 * before;
    in6_addr bytes{};
    if (inet_pton(family, address.c_str(), bytes.s6_addr + before) != 1 || prefix <= 8 * before ||
        prefix > 128) {
        return std::nullopt;
    }
    get_ip6_subnet(bytes, &bytes, prefix);
    std::array<char, INET6_ADDRSTRLEN> text{};
    return inet_ntop(family, bytes.s6_addr + before, text.data(), text.size());
}

void move_to_network(const RouteFormat& format, Json::Value& route) {
    const std::string address = nm::json_string_or(route, format.address, "");
    const std::string prefix = nm::show_json(nm::json_member(route, format.prefix));
    const std::optional<std::string> network = network_of(address, prefix);
    if (!network) {
        NM_LOG(Error) << "Calculate network address failed, ip: " << address << ", prefix: " << prefix;
        return;
    }
    if (*network != address) {
        route[format.address] = *network;
        NM_LOG(Info) << "Transform ip: " << address << ", prefix: " << prefix
                     << " to network address: " << *network;
    }
}

void renew_meta(const char* version, Json::Value& config) {
    Json::Value meta;
    meta["VERSION"] = version;
    const Json::Value& last_update = nm::json_member(nm::json_member(config, "META"), "LAST_UPDATE");
    if (!last_update.isNull()) {
        meta["LAST_UPDATE"] = last_update;
    }
    config["META"] = meta;
}

void migrate_routes(const RouteFormat& format, Json::Value& routes) {
    for (Json::Value& route : routes) {
        if (route.isObject()) {  // whoever sets the list up refuses what is none
            route = rebuilt(format, route);
            move_to_network(format, route);
        }
    }
}

int migrate(const RouteFormat& format, Json::Value& config, const std::string& path) {
    NM_LOG(Trace) << "path: " << path;
    if (!config.isObject() && !config.isNull()) {
        NM_LOG(Error) << "root is not valid format";
        return NM_ERR_BAD_FORMAT;
    }
    if (nm::is_newer(format.name, config)) {
        return NM_OK;  // Rebuilt, its routes would lose what this code does not know.
    }
    if (!config.isMember(format.list)) {
        NM_LOG(Error) << format.title << " config is corrupted, try to fixed it.";
        config[format.list] = Json::arrayValue;
    }
    const std::string version = nm::json_string_or(nm::json_member(config, "META"), "VERSION", "0.0.0");
    const char* const current = nm::format_version(format.name);
    if (version == current) {
        NM_LOG(Debug) << format.name << " version has not changed.";
        return NM_OK;
    }
    NM_LOG(Info) << "Migrate " << format.name << " config from " << version << " to " << current;
    renew_meta(current, config);
    if (config[format.list].isArray()) {
        migrate_routes(format, config[format.list]);
    }
    return NM_OK;
}

}  // namespace

int migrate_static_route(Json::Value& config, std::string path) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(migrate(kIp4Format, config, path));
}

int migrate_static_route6(Json::Value& config, std::string path) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(migrate(kIp6Format, config, path));
}

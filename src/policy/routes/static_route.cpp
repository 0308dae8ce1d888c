// Static routes on their way from the documents to the kernel's tables.
#include "policy/routes/static_route.h"

#include <arpa/inet.h>

#include <array>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <vector>

#include "config/nmconfig.h"
#include "interfaces/uplink/available_info.h"
#include "kernel/ipset.h"
#include "kernel/route.h"
#include "log.h"
#include "result_codes.h"
#include "utils/files.h"
#include "utils/json_text.h"

namespace {

constexpr const char* kSet = "static_route";

/// One family: where its list is stored, how it is read, and its words in the log.
struct RouteFamily {
    unsigned char family;
    const char* stored_path;
    const char* list;
    const char* log_name;
    size_t (*parse)(Json::Value&, Json::Value&, Json::Value&, sroute**);
    int (*migrate)(Json::Value&, std::string);
};

constexpr std::array kFamilies{
    RouteFamily{AF_INET, "/etc/networkmanagement/static_route.json", "STATIC_ROUTE", "IPv4", parse_route,
                migrate_static_route},
    RouteFamily{AF_INET6, "/etc/networkmanagement/static_route6.json", "staticRoute6", "IPv6", parse_route6,
                migrate_static_route6},
};

const RouteFamily& find_family(unsigned char family) {
    return family == AF_INET6 ? kFamilies[1] : kFamilies[0];
}

struct FreeDeleter {
    void operator()(sroute* routes) const { free(routes); }
};

bool is_complete(const sroute& route) {
    return route.family == AF_INET6 ? route.has_gw && route.oif != 0 : route.has_gw || route.oif != 0;
}

/// Whoever balances or steers packets leaves those to the members of the set alone.
void add_to_set(const sroute& route) {
    std::array<char, INET6_ADDRSTRLEN> address{};
    const std::string network =
        std::string(inet_ntop(route.family, route.dst, address.data(), address.size())) + "/" +
        std::to_string(route.prefix);
    if (edit_ipset("add", kSet, network) != NM_OK) {
        NM_LOG(Error) << "Add static route: " << network << " failed.";
    }
}

/// A route that the kernel refuses stands there already, or its device will bring it: that is no failure.
int add_list(RT_ID table, const sroute* routes, size_t count) {
    std::vector<const sroute*> wanted;
    std::vector<nm::NewRoute> requests;
    for (const sroute* route = routes; route != routes + count; ++route) {
        if (is_complete(*route)) {
            wanted.push_back(route);
            requests.push_back({route->family, route->dst, route->prefix, route->has_gw ? route->gw : nullptr,
                                route->oif, route->metric});
        }
    }
    std::vector<bool> added;
    const int ret = nm::add_routes(table, requests, added);
    for (size_t i = 0; i < wanted.size(); ++i) {
        if (added[i] && wanted[i]->family == AF_INET && wanted[i]->oif == 0) {
            add_to_set(*wanted[i]);
        }
    }
    return ret;
}

int apply(const RouteFamily& family, Json::Value& config, Json::Value& device, Json::Value& gateways) {
    if (family.family == AF_INET && edit_ipset("flush", kSet, "") != NM_OK) {
        NM_LOG(Error) << "Flush static_route failed.";
    }
    Json::Value none;
    Json::Value& list =
        config.isMember(family.list) ? config[family.list] : none;  // throws on what is not an object
    sroute* parsed = nullptr;
    const size_t count = family.parse(list, device, gateways, &parsed);
    const std::unique_ptr<sroute, FreeDeleter> routes(parsed);
    const int ret = apply_routes_to_table(nm::kFirstStaticTable, family.family, parsed, count);
    return ret != NM_OK ? ret : apply_routes_to_table(nm::kSecondStaticTable, family.family, parsed, count);
}

/// The gateways that the uplinks of all kinds have at present, by the interface that their traffic runs on.
int read_gateways(const std::string& path, Json::Value& gateways) {
    for (const auto collect :
         {get_available_wan_info, get_available_private_info, get_available_rglink_info}) {
        std::vector<available_base_wan_status> uplinks;
        const int ret = collect(uplinks, path, 0);
        if (ret != NM_OK) {
            NM_LOG(Error) << "get_available_wan_info failed, ret: " << ret;
            return ret;
        }
        for (const available_base_wan_status& uplink : uplinks) {
            gateways[uplink.ifname]["ip4_gw"] = uplink.ip4.gw;
            gateways[uplink.ifname]["ip6_gw"] = uplink.ip6.gw;
        }
    }
    return NM_OK;
}

int migrate_and_set_up(const RouteFamily& family, Json::Value& config, const std::string& path,
                       const std::string& source) {
    const int ret = family.migrate(config, source);
    return ret != NM_OK ? ret : __setup_static_route(family.family, config, path);
}

int reload(const RouteFamily& family, const std::string& path) {
    Json::Value config(Json::objectValue);
    int ret = NM_OK;
    if (is_file_exists(family.stored_path)) {
        ret = json_file_to_mem(family.stored_path, config);
    }
    if (ret >= 0) {
        ret = migrate_and_set_up(family, config, path, family.stored_path);
    }
    if (ret != NM_OK) {
        NM_LOG(Error) << "setup_static_route " << family.log_name << " fail. ret = " << ret;
    }
    return ret;
}

void unshare(Json::Value& config) {
    if (!nm::json_member(config, "STATIC_ROUTE").isArray()) {
        return;
    }
    for (Json::Value& route : config["STATIC_ROUTE"]) {
        if (route.isObject()) {
            route["SHARED"] = false;
        }
    }
}

}  // namespace

int apply_routes_to_table(RT_ID table, unsigned char family, const sroute* routes, size_t count) {
    NM_LOG(Debug) << "Enter";
    const int ret = flush_route_table(family, table);
    return NM_EXIT(ret != NM_OK ? ret : add_list(table, routes, count));
}

int __setup_static_route(unsigned char family, Json::Value& config, Json::Value device,
                         Json::Value gateways) {
    NM_LOG(Debug) << "Enter";
    try {
        return NM_EXIT(apply(find_family(family), config, device, gateways));
    } catch (const Json::Exception& error) {
        NM_LOG(Error) << "Json exception: " << error.what();
        return NM_EXIT(NM_ERR_PARSE);
    } catch (const std::invalid_argument& error) {
        NM_LOG(Error) << "Invalid argument: " << error.what();
        return NM_EXIT(NM_ERR_BAD_FORMAT);
    } catch (const std::out_of_range& error) {
        NM_LOG(Error) << "Out of range: " << error.what();
        return NM_EXIT(NM_ERR_BAD_VALUE);
    } catch (...) {
        NM_LOG(Error) << "Unknown exception";
        return NM_EXIT(NM_ERR_BAD_ACT);
    }
}

int __setup_static_route(unsigned char family, Json::Value& config, std::string path) {
    NM_LOG(Debug) << "Enter";
    Json::Value device;
    Json::Value gateways(Json::objectValue);
    int ret = json_file_to_mem(path, device);
    if (ret < 0) {
        NM_LOG(Error) << "json_file_to_mem fail. path = " << path;
        return NM_EXIT(ret);
    }
    ret = read_gateways(path, gateways);
    return NM_EXIT(ret != NM_OK ? ret : __setup_static_route(family, config, device, gateways));
}

int setup_static_route(Json::Value& config, std::string path) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(migrate_and_set_up(find_family(AF_INET), config, path, "static_route.json"));
}

int setup_static_route6(Json::Value& config, std::string path) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(migrate_and_set_up(find_family(AF_INET6), config, path, "static_route6.json"));
}

int __reload_static_route(unsigned char family, std::string path) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(reload(find_family(family), path));
}

int __reload_static_route(std::string path) {
    NM_LOG(Debug) << "Enter";
    const int ret = reload(find_family(AF_INET), path);
    const int ret6 = reload(find_family(AF_INET6), path);
    return NM_EXIT(ret != NM_OK ? ret : ret6);
}

int reload_static_route(std::string path) {
    return __reload_static_route(AF_INET, path);
}

int reload_static_route6(std::string path) {
    return __reload_static_route(AF_INET6, path);
}

int disabled_static_route_shared() {
    NM_LOG(Debug) << "Enter";
    const char* path = find_family(AF_INET).stored_path;
    if (!is_file_exists(path)) {
        return NM_EXIT(NM_OK);
    }
    Json::Value config;
    if (json_file_to_mem(path, config) < 0) {
        NM_LOG(Error) << "json_file_to_mem fail. path = " << path;
        return NM_EXIT(NM_ERR_MGMT_STATIC_ROUTE);
    }
    unshare(config);
    if (json_mem_to_file(path, config, false) < 0) {
        NM_LOG(Error) << "json_mem_to_file fail. path = " << path;
        return NM_EXIT(NM_ERR_MGMT_STATIC_ROUTE);
    }
    return NM_EXIT(NM_OK);
}

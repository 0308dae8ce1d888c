// Static routes of the administrator: /etc/networkmanagement/static_route.json (`STATIC_ROUTE`, IPv4) and
// static_route6.json (`staticRoute6`, IPv6). Each apply writes the whole list into two routing tables, one
// that is searched before the uplinks' tables and one behind the main table (kernel/route_table.h). Networks
// that are reached by a gateway alone are kept in the ipset `static_route` as well.
#pragma once

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "kernel/route_table.h"

#pragma GCC visibility push(default)

/// One route, its addresses as raw bytes in network order, 4 or 16 of them by family.
struct sroute {
    unsigned char family;  ///< AF_INET or AF_INET6
    unsigned char dst[16];
    uint8_t prefix;
    uint32_t oif;  ///< index of the output interface, 0 for none
    bool has_gw;   ///< whether `gw` counts
    unsigned char gw[16];
    uint32_t metric;
};

/// Read the usable routes of a list into an array with room for all of them, which the caller frees with
/// free(). `device` is the device document; `gateways` holds `ip4_gw` and `ip6_gw` by device, so that a route
/// to a port inherits the gateway that the port has at present. An element that is disabled or has no usable
/// next hop is left out. The number of routes; std::invalid_argument and std::out_of_range for a malformed
/// element, with `*out` untouched.
size_t parse_route(Json::Value& routes, Json::Value& device, Json::Value& gateways, sroute** out);
size_t parse_route6(Json::Value& routes, Json::Value& device, Json::Value& gateways, sroute** out);

/// Replaces the routes of the family in `table`. One that the kernel refuses, as it stands there already, is
/// passed over. 0; the code of flush_route_table(); NM_ERR_BAD_FORMAT; NM_ERR_NL_CONNECT.
int apply_routes_to_table(RT_ID table, unsigned char family, const sroute* routes, size_t count);

/// Reads the list of the family from `config` and writes both tables; the first failure of a table leaves the
/// second alone. 0; the codes of apply_routes_to_table(); NM_ERR_PARSE, NM_ERR_BAD_FORMAT, NM_ERR_BAD_VALUE
/// or NM_ERR_BAD_ACT for a list that cannot be read, with the tables as they were.
int __setup_static_route(unsigned char family, Json::Value& config, Json::Value device, Json::Value gateways);
/// The same with the device document at `path` and what its uplinks have in force. Also the code of reading.
int __setup_static_route(unsigned char family, Json::Value& config, std::string path);

/// Bring `config` to the current format in memory, then set it up. `path` is the device document.
int setup_static_route(Json::Value& config, std::string path);
int setup_static_route6(Json::Value& config, std::string path);

/// The same with the stored lists. A family that has no stored list has no routes. The second form works both
/// families, whatever comes of the first; the result is the first failure.
int __reload_static_route(unsigned char family, std::string path);
int __reload_static_route(std::string path);
int reload_static_route(std::string path);
int reload_static_route6(std::string path);

/// Bring a list to the current format in memory and its destinations to network addresses; `path` says in the
/// log where it comes from. A list of the current version or of a later one is left alone. 0;
/// NM_ERR_BAD_FORMAT for a document that is not an object.
int migrate_static_route(Json::Value& config, std::string path);
int migrate_static_route6(Json::Value& config, std::string path);

/// Takes `SHARED` from every stored IPv4 route. 0, also without a stored list; NM_ERR_MGMT_STATIC_ROUTE if it
/// can be neither read nor written.
int disabled_static_route_shared();

#pragma GCC visibility pop

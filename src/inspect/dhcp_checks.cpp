// DHCP services and the LANs that they are for.
#include <algorithm>
#include <optional>
#include <set>

#include "inspect/checks.h"
#include "inspect/formats.h"
#include "services/dhcp/server_pool.h"
#include "utils/json_text.h"

namespace nm {

namespace {

constexpr const char* kServices = "dhcp_service";

/// A server with a pool that can be read.
struct Pool {
    Place place;
    const Json::Value& entry;
    uint32_t start = 0;
    uint32_t end = 0;
};

std::string text_at(const Json::Value& entry, const char* key) {
    return json_scalar(json_member(entry, key));
}

std::optional<StaticAddress> address_of(const Json::Value& device, const std::string& ifname) {
    for (const StaticAddress& address : static_addresses(device)) {
        if (address.section == kLanInfos && address.ifname == ifname) {
            return address;
        }
    }
    return std::nullopt;
}

/// A service is created for an interface that has an address.
void check_interface(const Place& place, const std::string& ifname, const Json::Value& device,
                     Findings& findings) {
    const Json::Value& lan = json_member(json_member(device, kLanInfos), ifname);
    if (!lan.isObject()) {
        findings.error(place, ifname + " is not a LAN", "the name of an interface of LAN_IFACE_INFO",
                       kDevice);
    } else if (text_at(lan, "IP4_TYPE") == "DISABLED") {
        findings.error(place, ifname + " has no IPv4 address", "a LAN whose IP4_TYPE is STATIC or DHCP",
                       kDevice);
    }
}

void check_pool_in_lan(const Pool& pool, const StaticAddress& lan, Findings& findings) {
    const Network4 network = network_of(lan.address, lan.prefix);
    const auto check = [&](const char* key, uint32_t address) {
        if (address < network.first || address > network.last) {
            findings.error(pool.place / key, show_ip4(address) + " is not in the network of " + lan.ifname,
                           "an address from " + show_ip4(network.first) + " to " + show_ip4(network.last),
                           kDevice);
        }
    };
    check("START_IP", pool.start);
    check("END_IP", pool.end);
}

/// A reversed pool is written as it is.
void check_bounds(const Pool& pool, const std::optional<StaticAddress>& lan, Findings& findings) {
    const bool has_reservations = !json_member(pool.entry, "RESERVED_IP").empty();
    if (pool.start > pool.end) {
        findings.warn(pool.place / "START_IP",
                      show_ip4(pool.start) + " comes after the end, " + show_ip4(pool.end),
                      "the lower address first");
    } else if (lan && pool.start == pool.end && pool.start == lan->address && !has_reservations) {
        findings.error(pool.place / "START_IP", "the pool is empty: its one address is the LAN's own",
                       "a pool with further addresses", kDevice);
    }
}

/// The daemon names a host by its address, and takes each name once.
void check_reservations(const Pool& pool, const std::optional<StaticAddress>& lan, Findings& findings) {
    std::set<std::string> addresses;
    std::set<std::string> clients;
    for_each_entry(pool.place / "RESERVED_IP", json_member(pool.entry, "RESERVED_IP"),
                   [&](const Place& place, const std::string&, const Json::Value& entry) {
                       uint32_t address = 0;
                       const std::string text = text_at(entry, "IP4_ADDR");
                       if (!read_ip4(text, address)) {
                           return;
                       }
                       if (address < pool.start || address > pool.end) {
                           findings.error(
                               place / "IP4_ADDR", text + " is not in the pool",
                               "an address from " + show_ip4(pool.start) + " to " + show_ip4(pool.end));
                       } else if (!addresses.insert(text).second) {
                           findings.error(place / "IP4_ADDR", text + " is reserved twice",
                                          "an address of its own for each");
                       } else if (lan && address == lan->address) {
                           findings.warn(place / "IP4_ADDR", text + " is the LAN's own address",
                                         "another address", kDevice);
                       }
                       if (!clients.insert(text_at(entry, "MAC")).second) {
                           findings.warn(place / "MAC", "this client has two reservations",
                                         "one address for each client");
                       }
                   });
}

void check_server(const Place& place, const std::string& ifname, const Json::Value& entry,
                  const Json::Value& device, Findings& findings) {
    Pool pool{place, entry};
    if (entry.isMember("LEASE_TIME") && text_at(entry, "LEASE_TIME").empty()) {
        return;  // found by the schema
    }
    if (!read_ip4(text_at(entry, "START_IP"), pool.start) || !read_ip4(text_at(entry, "END_IP"), pool.end)) {
        return;
    }
    const std::optional<StaticAddress> lan = address_of(device, ifname);
    if (lan) {
        check_pool_in_lan(pool, *lan, findings);
    }
    check_bounds(pool, lan, findings);
    check_reservations(pool, lan, findings);
}

}  // namespace

void check_dhcp_services(const DocumentSet& documents, Findings& findings) {
    const Json::Value& device = documents.root(kDevice);
    for_each_entry({kServices, "/DHCP_SERVICE"}, json_member(documents.root(kServices), "DHCP_SERVICE"),
                   [&](const Place& place, const std::string& ifname, const Json::Value& entry) {
                       const std::string service = text_at(entry, "SERVICE");
                       const bool runs = service == "SERVER" || service == "RELAY";
                       if (!runs && service != "DISABLED") {
                           findings.warn(place / "SERVICE", "nothing runs for " + show_value(place, service),
                                         "SERVER, RELAY or DISABLED");
                       }
                       if (runs && device.isObject()) {
                           check_interface(place, ifname, device, findings);
                       }
                       if (service == "SERVER") {
                           check_server(place, ifname, entry, device, findings);
                       }
                   });
}

}  // namespace nm

// What documents mean together: references between them, addresses, networks, forwards, routes. These checks
// take what the schemas have found for granted: a value of a wrong kind is passed over here.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "config/schema.h"
#include "inspect/document_set.h"
#include "inspect/findings.h"

namespace nm {

/// All checks below.
void check_meaning(const DocumentSet& documents, Findings& findings);

/// Ports, the interfaces that their addressing is for, VLANs and their bridges, and the physical interfaces.
void check_ports(const DocumentSet& documents, Findings& findings);

/// Addresses, prefixes and gateways of uplinks and LANs: each by itself, and all together.
void check_addresses(const DocumentSet& documents, Findings& findings);

/// The IPv6 of LANs: their uplinks, and what their clients are given.
void check_lan_ipv6(const DocumentSet& documents, Findings& findings);

/// Pools, reservations and relays, and the LANs that they are for.
void check_dhcp_services(const DocumentSet& documents, Findings& findings);

/// Rules of firewall, classes and steering, the segments that they name, and where these are deployed.
void check_rules(const DocumentSet& documents, Findings& findings);

/// Port forwards and one-to-one NAT.
void check_forwards(const DocumentSet& documents, Findings& findings);

/// Static routes of both families.
void check_routes(const DocumentSet& documents, Findings& findings);

/// The names of segments, and the registry of service ports.
void check_names(const DocumentSet& documents, Findings& findings);

/// Calls `visit` for each member of an object, or each element of a list, that is an object and not empty.
using VisitEntry = std::function<void(const Place& place, const std::string& name, const Json::Value& entry)>;
void for_each_entry(const Place& place, const Json::Value& section, const VisitEntry& visit);

/// A port of the device document.
struct PortEntry {
    Place place;
    std::string section;
    std::string name;
    std::string interface;
    const Json::Value* entry;
};
std::vector<PortEntry> ports_of(const Json::Value& device);

/// The port of this name, null if there is none.
const PortEntry* find_port(const std::vector<PortEntry>& ports, const std::string& name);

/// An interface that has a stored IPv4 address.
struct StaticAddress {
    Place place;
    std::string section;
    std::string ifname;
    uint32_t address = 0;
    int prefix = 0;
    std::string gateway;
};
std::vector<StaticAddress> static_addresses(const Json::Value& device);

/// The services of the registry among the documents; without one, the predefined services.
std::vector<service_port> stored_services(const DocumentSet& documents);

/// The sections of the device document that hold addressing, and the ports that it is for.
struct InfoSection {
    const char* infos;
    const char* ports;
};
constexpr InfoSection kUplinkInfos[] = {{"WAN_IFACE_INFO", "WAN_PORT"},
                                        {"PRIVATE_IFACE_INFO", "PRIVATE_PORT"},
                                        {"RGLINK_IFACE_INFO", "RGLINK_PORT"}};
constexpr const char* kLanInfos = "LAN_IFACE_INFO";
constexpr const char* kDevice = "device_info";
constexpr const char* kRegistry = "servicePort";

}  // namespace nm

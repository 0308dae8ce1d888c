// The list of the checks, and what several of them read.
#include "inspect/checks.h"

#include <algorithm>

#include "inspect/formats.h"
#include "utils/json_text.h"

namespace nm {

void check_meaning(const DocumentSet& documents, Findings& findings) {
    for (const auto& check : {check_ports, check_addresses, check_lan_ipv6, check_dhcp_services, check_rules,
                              check_forwards, check_routes, check_names}) {
        check(documents, findings);
    }
}

void for_each_entry(const Place& place, const Json::Value& section, const VisitEntry& visit) {
    for (auto entry = section.begin(); entry != section.end(); ++entry) {
        if (entry->isObject() && !entry->empty()) {
            section.isArray() ? visit(place / entry.index(), "", *entry)
                              : visit(place / entry.name(), entry.name(), *entry);
        }
    }
}

std::vector<PortEntry> ports_of(const Json::Value& device) {
    std::vector<PortEntry> ports;
    for (const char* const section : {"WAN_PORT", "PRIVATE_PORT", "RGLINK_PORT", "LAN_PORT"}) {
        for_each_entry({kDevice, std::string("/") + section}, json_member(device, section),
                       [&](const Place& place, const std::string& name, const Json::Value& entry) {
                           const std::string interface = json_scalar(json_member(entry, "INTERFACE"));
                           ports.push_back({place, section, name, interface, &entry});
                       });
    }
    return ports;
}

const PortEntry* find_port(const std::vector<PortEntry>& ports, const std::string& name) {
    const auto found = std::find_if(ports.begin(), ports.end(),
                                    [&name](const PortEntry& port) { return port.name == name; });
    return found != ports.end() ? &*found : nullptr;
}

namespace {

bool read_static(const Json::Value& entry, StaticAddress& address) {
    constexpr int kMost = 32;
    const Json::Value& prefix = json_member(entry, "IP4_PREFIX");
    address.prefix = prefix.isNull() ? 24 : static_cast<int>(leading_number(json_scalar(prefix)));
    address.gateway = json_scalar(json_member(entry, "IP4_GW"));
    return json_scalar(json_member(entry, "IP4_TYPE")) == "STATIC" && address.prefix >= 1 &&
           address.prefix <= kMost && read_ip4(json_scalar(json_member(entry, "IP4_ADDR")), address.address);
}

}  // namespace

std::vector<StaticAddress> static_addresses(const Json::Value& device) {
    std::vector<StaticAddress> addresses;
    std::vector<const char*> sections{kLanInfos};
    for (const InfoSection& row : kUplinkInfos) {
        sections.push_back(row.infos);
    }
    for (const char* const section : sections) {
        for_each_entry({kDevice, std::string("/") + section}, json_member(device, section),
                       [&](const Place& place, const std::string& name, const Json::Value& entry) {
                           StaticAddress address{place, section, name, 0, 0, ""};
                           if (read_static(entry, address)) {
                               addresses.push_back(address);
                           }
                       });
    }
    return addresses;
}

}  // namespace nm

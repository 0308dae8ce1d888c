// Ports and what refers to them within the device document.
#include <algorithm>
#include <map>
#include <set>

#include "config/port_names.h"
#include "inspect/checks.h"
#include "inspect/formats.h"
#include "utils/json_text.h"

namespace nm {

namespace {

constexpr const char* kHardware = "hw_port_info";
constexpr int kSmallestIp6Mtu = 1280;  // RFC 8200, section 5
constexpr int kDefaultMtu = 1500;

int mtu_of(const Json::Value& entry) {
    const Json::Value& mtu = json_member(entry, "MTU");
    return mtu.isNull() ? kDefaultMtu : static_cast<int>(leading_number(json_scalar(mtu)));
}

/// Ports of a switch share an interface, and are told apart by its tags.
bool is_behind_switch(const PortEntry& port) {
    return port.entry->isMember("EDMA_BMP");
}

void check_names_of_ports(const std::vector<PortEntry>& ports, Findings& findings) {
    std::map<std::string, const PortEntry*> names;
    std::map<std::string, const PortEntry*> interfaces;
    for (const PortEntry& port : ports) {
        const auto name = names.try_emplace(port.name, &port);
        if (!name.second) {
            findings.error(port.place, port.name + " is in " + name.first->second->section + " as well",
                           "a port has one kind");
        }
        if (port_index(port.name) == 0) {
            findings.warn(port.place, "the name " + port.name + " has no number",
                          "PORT and a number, which is that of the uplink");
        }
        const auto used = interfaces.try_emplace(port.interface, &port);
        if (!used.second && !port.interface.empty() && !is_behind_switch(port)) {
            findings.error(port.place / "INTERFACE",
                           port.interface + " is the interface of " + used.first->second->name + ", too",
                           "an interface of its own for each port");
        }
    }
}

/// What is not a number is read as 0, and what follows one is not read.
void check_numbers(const std::vector<PortEntry>& ports, Findings& findings) {
    for (const PortEntry& port : ports) {
        for (const char* const key : {"MTU", "PRIO", "ISP_BW", "RX_RATE", "TX_RATE", "VLAN_ID"}) {
            const std::string text = json_scalar(json_member(*port.entry, key));
            if (!text.empty() && text.find_first_not_of("0123456789") != std::string::npos) {
                findings.warn(port.place / key,
                              show_value(port.place / key, text) + " is read as the number at its beginning",
                              "a number");
            }
        }
    }
}

void check_uplink_infos(const Json::Value& device, Findings& findings) {
    for (const InfoSection& row : kUplinkInfos) {
        const Json::Value& ports = json_member(device, row.ports);
        for_each_entry({kDevice, std::string("/") + row.infos}, json_member(device, row.infos),
                       [&](const Place& place, const std::string& name, const Json::Value&) {
                           if (!ports.isObject() || find_port_of_ifname(ports, name).empty()) {
                               findings.error(
                                   place,
                                   "no port of " + std::string(row.ports) + " has the interface " + name,
                                   "the name of an interface of one of these ports");
                           }
                       });
    }
}

std::set<std::string> lan_devices(const Json::Value& device, const std::vector<PortEntry>& ports) {
    std::set<std::string> names;
    for (const PortEntry& port : ports) {
        if (port.section == "LAN_PORT") {
            names.insert(port.interface);
        }
    }
    for (const Json::Value& bridge : json_member(device, "VLAN_SEG")) {
        names.insert(json_scalar(json_member(bridge, "INTERFACE")));
    }
    return names;
}

void check_lan_infos(const Json::Value& device, const std::vector<PortEntry>& ports, Findings& findings) {
    const std::set<std::string> known = lan_devices(device, ports);
    for_each_entry({kDevice, std::string("/") + kLanInfos}, json_member(device, kLanInfos),
                   [&](const Place& place, const std::string& name, const Json::Value&) {
                       if (known.count(name) == 0 && known.count(name.substr(0, name.find('.'))) == 0) {
                           // Others may make the device.
                           findings.warn(place, "no LAN port and no VLAN has the interface " + name,
                                         "the name of a bridge of VLAN_SEG or of an interface of LAN_PORT");
                       }
                   });
}

/// The ids of a list, and what in it is none.
std::set<int> vlans_of(const Place& place, const Json::Value& list, Findings& findings) {
    constexpr long kLast = 4095;
    std::set<int> ids;
    for (Json::ArrayIndex i = 0; list.isArray() && i < list.size(); ++i) {
        const std::string text = json_scalar(list[i]);
        const long id = text.empty() ? -1 : leading_number(text);
        const bool is_id =
            id >= 0 && id <= kLast && text.find_first_not_of("0123456789") == std::string::npos;
        if (is_id) {
            ids.insert(static_cast<int>(id));
        } else {
            findings.warn(place / i, show_value(place / i, list[i]) + " is not the id of a VLAN",
                          "a number from 0 to 4094");
        }
    }
    if (!list.isNull() && !list.isArray()) {
        findings.warn(place, "this is not a list", "a list of ids of VLANs");
    }
    return ids;
}

/// The bridge of a VLAN follows from its id, whatever the name of the entry is.
void check_bridges(const Json::Value& device, Findings& findings) {
    const Place section{kDevice, "/VLAN_SEG"};
    for_each_entry(section, json_member(device, "VLAN_SEG"),
                   [&](const Place& place, const std::string& name, const Json::Value& entry) {
                       const std::string bridge = json_scalar(json_member(entry, "INTERFACE"));
                       if (!bridge.empty() && bridge != "br_v" + name) {
                           findings.error(place / "INTERFACE", bridge + " is not the bridge of VLAN " + name,
                                          "br_v" + name + ", which the VLANs of trunks join");
                       }
                       (void)vlans_of(place / "VLANS", json_member(entry, "VLANS"), findings);
                   });
}

void check_member_mtu(const PortEntry& port, const std::string& vlan, const Json::Value& bridge,
                      Findings& findings) {
    const int mtu = mtu_of(bridge);
    if (port.entry->isMember("MTU") && mtu > mtu_of(*port.entry)) {
        const Place place = Place{kDevice, "/VLAN_SEG"} / vlan / "MTU";
        findings.error(place,
                       "the bridge's " + std::to_string(mtu) + " is more than the " +
                           std::to_string(mtu_of(*port.entry)) + " of its member " + port.name,
                       "at most the MTU of each port that carries the VLAN");
    }
}

void check_trunks(const Json::Value& device, const std::vector<PortEntry>& ports, Findings& findings) {
    const Json::Value& bridges = json_member(device, "VLAN_SEG");
    for (const PortEntry& port : ports) {
        const Place place = port.place / "VLANS";
        for (const int vid : vlans_of(place, json_member(*port.entry, "VLANS"), findings)) {
            const std::string name = std::to_string(vid);
            const Json::Value& bridge = json_member(bridges, name);
            if (bridge.isObject()) {
                check_member_mtu(port, name, bridge, findings);
            } else if (vid != 0) {
                findings.error(place, "VLAN " + name + " has no bridge", "VLANs of VLAN_SEG");
            }
        }
    }
}

/// The kernel takes IPv6 away from a device with less.
void check_ip6_mtu(const Json::Value& device, const std::vector<PortEntry>& ports, Findings& findings) {
    const auto check = [&](const Place& place, const Json::Value& entry, const Json::Value& info) {
        const std::string type = json_scalar(json_member(info, "IP6_TYPE"));
        if (!type.empty() && type != "DISABLED" && mtu_of(entry) >= 68 && mtu_of(entry) < kSmallestIp6Mtu) {
            findings.error(place / "MTU", "IPv6 needs an MTU of 1280 and more", "1280 and more, or no IPv6");
        }
    };
    for (const PortEntry& port : ports) {
        const char* const infos = port.section == "LAN_PORT" ? kLanInfos : "WAN_IFACE_INFO";
        check(port.place, *port.entry, json_member(json_member(device, infos), port.interface));
    }
    for_each_entry({kDevice, "/VLAN_SEG"}, json_member(device, "VLAN_SEG"),
                   [&](const Place& place, const std::string&, const Json::Value& entry) {
                       const std::string bridge = json_scalar(json_member(entry, "INTERFACE"));
                       check(place, entry, json_member(json_member(device, kLanInfos), bridge));
                   });
}

/// Physical interfaces are renamed one after the other: each name is given once.
void check_hardware(const Json::Value& hardware, Findings& findings) {
    std::map<std::string, std::string> given;
    for_each_entry({kHardware, ""}, hardware,
                   [&](const Place& place, const std::string& name, const Json::Value& entry) {
                       for (const char* const key : {"HW_PORT", "INTERFACE"}) {
                           const std::string value = json_scalar(json_member(entry, key));
                           const auto used = given.try_emplace(key + value, name);
                           if (name != "META" && !used.second) {
                               findings.error(place / key,
                                              value + " is that of " + used.first->second + ", too",
                                              "a physical interface of its own for each port");
                           }
                       }
                   });
}

/// Only a VLAN device of a LAN port is made on what this document names.
void check_parents(const DocumentSet& documents, const std::vector<PortEntry>& ports, Findings& findings) {
    constexpr long kLastVlan = 4095;
    const Json::Value& hardware = documents.root(kHardware);
    for (const PortEntry& port : ports) {
        const long vlan = leading_number(json_scalar(json_member(*port.entry, "VLAN_ID")));
        if (port.section == "LAN_PORT" && vlan >= 1 && vlan <= kLastVlan &&
            json_scalar(json_member(json_member(hardware, port.name), "HW_PORT")).empty()) {
            findings.error(port.place / "VLAN_ID", port.name + " has no physical interface for its VLAN",
                           "an entry of " + port.name + " in hw_port_info.json", kHardware);
        }
    }
}

}  // namespace

void check_ports(const DocumentSet& documents, Findings& findings) {
    const Json::Value& device = documents.root(kDevice);
    const std::vector<PortEntry> ports = ports_of(device);
    check_names_of_ports(ports, findings);
    check_numbers(ports, findings);
    check_uplink_infos(device, findings);
    check_lan_infos(device, ports, findings);
    check_bridges(device, findings);
    check_trunks(device, ports, findings);
    check_ip6_mtu(device, ports, findings);
    check_hardware(documents.root(kHardware), findings);
    check_parents(documents, ports, findings);
}

}  // namespace nm

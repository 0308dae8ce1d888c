// The schema of the device configuration as tables: kinds, models, default templates, default entries of a
// new port, the predefined service ports.
#pragma once

#include <json/value.h>

#include <map>
#include <string>
#include <vector>

#pragma GCC visibility push(default)

/// Numbers of the interface kinds: "NONE" 0, "WAN" 1, "PRIVATE" 2, "RGLINK" 3, "LAN" 4. The names are also
/// the first halves of the section names (WAN_PORT, WAN_IFACE_INFO).
extern const std::map<std::string, int> ifacetype_map;

/// Models whose LAN ports are devices of their own, and models whose LAN ports are trunks of VLANs.
extern const std::vector<std::string> port_based_model_list;
extern const std::vector<std::string> tag_based_model_list;

/// The default values of one device type: "ethernet", "vaport", "wlan", "bond", "vswitch", "vlan", "virtio",
/// "thunderbolt", "ap", "mastin200", "dummy", "global", "ServicePort". Empty for any other type.
std::map<std::string, std::string> get_default_tmpl(std::string type);

/// `base` with the values of `own` laid over it.
std::map<std::string, std::string> conftmpl_merge(const std::map<std::string, std::string>& base,
                                                  const std::map<std::string, std::string>& own);

/// A row of the service-port table; `ports` lists ports and `a~b` ranges, separated by ", ".
struct service_port {
    std::string service;
    std::string protocol;
    std::string ports;
    std::string remark;
    std::string internal_name;
};

/// The predefined service ports, in the order in which they are shown.
const std::vector<service_port>& get_default_service_ports();

/// The WAN_PORT entry of a new port: defaults of the model, `PRIO` from the port's number, `INTERFACE` from
/// hw_port_info.json. A null value for a model that is not served, which is logged.
Json::Value generate_default_wan_port(std::string portname, std::string model);

/// The PRIVATE_PORT entry of a new port, which is that of a WAN port, and the RGLINK_PORT entry, whose
/// `INTERFACE` is named after the port's number; a null value for a model that is not served.
Json::Value generate_default_private_port(std::string portname, std::string model);
Json::Value generate_default_rglink_port(std::string portname, std::string model);

/// The LAN_PORT entry of a new port in the same way; a null value for a model that is not served.
Json::Value generate_default_lan_port(std::string portname, std::string model);

#pragma GCC visibility pop

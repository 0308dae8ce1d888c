// Tables of the device configuration.
#include "config/schema.h"

#include <algorithm>
#include <array>
#include <optional>

#include "config/port_lookup.h"
#include "config/port_names.h"
#include "log.h"
#include "utils/Utils.h"

const std::map<std::string, int> ifacetype_map{
    {"NONE", 0}, {"WAN", 1}, {"PRIVATE", 2}, {"RGLINK", 3}, {"LAN", 4}};

const std::vector<std::string> port_based_model_list{"VM"};
const std::vector<std::string> tag_based_model_list{"SOLA_301W", "KERO_201", "VSola-321", "VSola-322"};

namespace {

using Template = std::map<std::string, std::string>;

/// A template as text: `key=value` fields separated by commas; a field without "=" has an empty value.
/// Types on the base are laid over the table `base`, the others stand alone.
struct TypeRow {
    const char* type;
    bool on_base;
    const char* fields;
};

constexpr const char* kBase =
    "display_name,default_display_name,ifname,vswitch_name,bonding_name,vlan_name,dhcpd_service=0,"
    "iptables_forward=0,ip4_type=DHCP,ip,subnet_mask=255.255.0.0,default_gateway,domain_name_server_type=0,"
    "domain_name_server_1,domain_name_server_2,ip6_type=SLAAC,ip6,ip6_prefix,ip6_default_gateway,speed=0,"
    "duplex=1,autoneg=1,mtu=1500,max_mtu,"
    "autoipd=/usr/lib/networkmanagement/etc/avahi/if_avahi_autoipd.action,mark_id=0,additional_flag";

constexpr std::array kTypes{
    TypeRow{
        "global", false,
        "dbversion=1.0.2,current_VPN_default_gateway,current_PPPoE_default_gateway,current_default_gateway,"
        "gateway_policy=2,fixed_gateway1,fixed_gateway2,domain_name,domain_name_server_1,"
        "domain_name_server_2,domain_name_server_3,dns_strict_order=0,disable_gw_updater=0,"
        "enable_fixed_dns=0"},
    TypeRow{"ethernet", true,
            "device_type=ethernet,MAC,max_speed,max_mtu=1500,dedicate,ifmode=3,is_vorn=0,offload=0,device=0,"
            "subvid=0,subdid=0,vendor,model,disp_model,type_definition=1,wan_bandwidth=1 Gbps,metric=0"},
    TypeRow{"virtio", false,
            "device_type=virtio,MAC,max_mtu=1500,dedicate,ifmode=3,display_name,default_display_name,ifname,"
            "vswitch_name,bonding_name,dhcpd_service=0,iptables_forward=0,ip4_type=DHCP,ip,"
            "subnet_mask=255.255.0.0,default_gateway,domain_name_server_type=0,domain_name_server_1,"
            "domain_name_server_2,ip6_type=SLAAC,ip6,ip6_prefix,ip6_default_gateway,mtu=1500,vlan_enable=0,"
            "vlan_id=1,autoipd=/usr/lib/networkmanagement/etc/avahi/if_avahi_autoipd.action,mark_id=0,"
            "additional_flag"},
    TypeRow{"vaport", true,
            "device_type=vaport,MAC,dhcpd_service=1,ip4_type=STATIC,subnet_mask=255.255.255.248,"
            "domain_name_server_type,max_speed,max_mtu=1500,dedicate,ifmode=3"},
    TypeRow{"wlan", true, "device_type=wlan,MAC,max_mtu=1500,dedicate,ifmode=1"},
    TypeRow{"bond", true,
            "device_type=bond,ip4_type=DISABLED,ip6_type=DISABLED,bonding_name,bonding_mode=0,bonding_member,"
            "bonding_index,bonding_hash_policy=0,lost_port_warning=0"},
    TypeRow{"vswitch", true,
            "device_type=vswitch,vswitch_name,dedicate,vswitch_mode=switch,physical_nic,virtual_nic,slave_if,"
            "stp=0"},
    TypeRow{"thunderbolt", false,
            "device_type=thunderbolt,display_name,ifmode=0,ifname,vswitch_name,default_display_name,"
            "additional_flag"},
    TypeRow{"ap", false,
            "device_type=ap,display_name,MAC,ifmode=1,ifname,vswitch_name,mtu=1500,max_mtu=1500,"
            "default_display_name,additional_flag"},
    TypeRow{"mastin200", false,
            "device_type=mastin200,display_name,MAC,speed=0,max_speed,mtu=1500,max_mtu=9000,ifmode=3,ifname,"
            "vswitch_name,default_display_name,additional_flag"},
    TypeRow{"vlan", false,
            "device_type=vlan,display_name,default_display_name,ifname,real_dev,vlan_id,additional_flag,"
            "autoipd=/etc/avahi/if_avahi_autoipd.action,vswitch_name,dhcpd_service=0,iptables_forward=0,"
            "ip4_type=DHCP,ip,subnet_mask=255.255.0.0,default_gateway,domain_name_server_type=0,"
            "domain_name_server_1,domain_name_server_2,ip6_type=SLAAC,ip6,ip6_prefix,ip6_default_gateway,"
            "mtu=1500,max_mtu,mark_id=0"},
    TypeRow{"dummy", false, "device_type=dummy,MAC,ifname,vswitch_name"},
    TypeRow{"ServicePort", false, "dbversion=0.0.3,service,protocol,ports,remark,internal_name"},
};

Template parse_fields(const char* text) {
    std::vector<std::string> fields;
    split_into_vector(text, ',', fields);
    Template table;
    for (const std::string& field : fields) {
        const size_t sign = field.find('=');
        table[field.substr(0, sign)] = sign == std::string::npos ? "" : field.substr(sign + 1);
    }
    return table;
}

/// What a model's new WAN port holds besides the values common to all.
const std::map<std::string, Template>& wan_port_models() {
    static const Template ethernet{{"DEV_TYPE", "ethernet"}, {"SPEED", "AUTO"}};
    static const std::map<std::string, Template> table{
        {"SOLA_301W", ethernet},
        {"VSola-321", ethernet},
        {"VSola-322", ethernet},
        {"KERO_201", {{"DEV_TYPE", "ethernet"}, {"EDMA_BMP", "4"}, {"EDMA_VLAN_TAG", "4093"}}},
        {"VM", {{"DEV_TYPE", "virtio"}}},
    };
    return table;
}

/// The same for a new RGLink.
const std::map<std::string, Template>& rglink_port_models() {
    static const std::map<std::string, Template> table{
        {"SOLA_301W", {{"DEV_TYPE", "ethernet"}, {"SPEED", "AUTO"}, {"VLAN_ID", "0"}}},
        {"KERO_201", {{"DEV_TYPE", "ethernet"}, {"EDMA_BMP", "4"}, {"EDMA_VLAN_TAG", "4093"}}},
        {"VM", {{"DEV_TYPE", "virtio"}}},
    };
    return table;
}

/// What a model's new LAN port holds besides `MTU` and `INTERFACE`; a list of VLANs only where ports are
/// trunks.
struct LanPortModel {
    Template texts;
    std::optional<std::vector<std::string>> vlans;
};

const std::map<std::string, LanPortModel>& lan_port_models() {
    static const LanPortModel virtual_edge{{{"DEV_TYPE", "ethernet"}, {"SPEED", "AUTO"}}, {{}}};
    static const std::map<std::string, LanPortModel> table{
        {"SOLA_301W", {{{"DEV_TYPE", "ethernet"}, {"MODE", "ACCESS"}, {"SPEED", "AUTO"}}, {{"0"}}}},
        {"VSola-321", virtual_edge},
        {"VSola-322", virtual_edge},
        {"KERO_201", {{{"DEV_TYPE", "ethernet"}, {"EDMA_BMP", "8"}, {"EDMA_VLAN_TAG", "0"}}, {{"1"}}}},
        {"VM", {{{"DEV_TYPE", "virtio"}, {"SEG_ID", ""}, {"VLAN_ID", "0"}}, std::nullopt}},
    };
    return table;
}

/// The model's row, null with a line in the log for a model that is not served.
template <class Row>
const Row* find_model(const std::map<std::string, Row>& models, const std::string& model) {
    const auto found = models.find(model);
    if (found == models.end()) {
        NM_LOG(Error) << "Model [" << model << "] is not support!";
        return nullptr;
    }
    return &found->second;
}

Json::Value new_uplink_port(const std::map<std::string, Template>& models, const std::string& portname,
                            const std::string& model, const std::string& ifname) {
    const Template* const texts = find_model(models, model);
    if (texts == nullptr) {
        return {};
    }
    constexpr const char* kNewPortRate = "1000000000";
    Json::Value entry(Json::objectValue);
    for (const char* rate : {"ISP_BW", "RX_RATE", "TX_RATE"}) {
        entry[rate] = kNewPortRate;
    }
    entry["MTU"] = "1500";
    entry["PRIO"] = std::to_string(nm::port_index(portname));
    entry["INTERFACE"] = ifname;
    for (const auto& [key, value] : *texts) {
        entry[key] = value;
    }
    return entry;
}

}  // namespace

std::map<std::string, std::string> get_default_tmpl(std::string type) {
    const auto row = std::find_if(kTypes.begin(), kTypes.end(),
                                  [&type](const TypeRow& candidate) { return candidate.type == type; });
    if (row == kTypes.end()) {
        return {};
    }
    const Template own = parse_fields(row->fields);
    return row->on_base ? conftmpl_merge(parse_fields(kBase), own) : own;
}

std::map<std::string, std::string> conftmpl_merge(const std::map<std::string, std::string>& base,
                                                  const std::map<std::string, std::string>& own) {
    std::map<std::string, std::string> merged = own;
    merged.insert(base.begin(), base.end());
    return merged;
}

const std::vector<service_port>& get_default_service_ports() {
    static const std::vector<service_port> table{
        {"Microsoft Network", "All", "137~139, 445", "NetBIOS/SAMBA", ""},
        {"Apple Network", "All", "548", "", ""},
        {"NFS Service", "All", "111, 2049", "", ""},
        {"FTP Service", "All", "21", "", ""},
        {"TFTP Service", "UDP", "69", "", ""},
        {"VNE Web", "All", "8080", "", ""},
        {"SSH Service", "All", "22", "", ""},
        {"Telnet Service", "All", "13131", "", ""},
        {"SNMP", "All", "161", "", ""},
        {"Web Server", "All", "80, 8081", "Http 80, Https 8081", ""},
        {"SQL Server", "TCP", "3306", "", ""},
        {"RPLR Server", "All", "8899", "", ""},
        {"LDAP Server", "All", "389, 636", "LDAP 389, LDAP(SSL) 636", ""},
        {"VPN (PPTP)", "All", "1723", "", ""},
        {"VPN (OpenVPN)", "All", "1194", "", ""},
        {"NTP Server", "All", "123", "", ""},
        {"Syslog Server", "All", "514", "", ""},
    };
    return table;
}

Json::Value generate_default_wan_port(std::string portname, std::string model) {
    return new_uplink_port(wan_port_models(), portname, model, find_interface_from_hwport_config(portname));
}

Json::Value generate_default_private_port(std::string portname, std::string model) {
    return generate_default_wan_port(std::move(portname), std::move(model));
}

Json::Value generate_default_rglink_port(std::string portname, std::string model) {
    return new_uplink_port(rglink_port_models(), portname, model,
                           "swdev" + std::to_string(nm::port_index(portname)));
}

Json::Value generate_default_lan_port(std::string portname, std::string model) {
    const LanPortModel* const row = find_model(lan_port_models(), model);
    if (row == nullptr) {
        return {};
    }
    Json::Value entry(Json::objectValue);
    entry["MTU"] = "1500";
    entry["INTERFACE"] = find_interface_from_hwport_config(portname);
    for (const auto& [key, value] : row->texts) {
        entry[key] = value;
    }
    if (row->vlans) {
        entry["VLANS"] = Json::Value(Json::arrayValue);
        for (const std::string& vid : *row->vlans) {
            entry["VLANS"].append(vid);
        }
    }
    return entry;
}

// The handlers that act at once: tunnels, leases, load balancing, VPN, the overlay's daemons.
#include <map>
#include <memory>
#include <string>

#include "config/nmconfig.h"
#include "config/port_lookup.h"
#include "config/port_names.h"
#include "config/schema.h"
#include "control/handlers/works.h"
#include "interfaces/create_info.h"
#include "interfaces/uplink/PrivateIfaceInfo.h"
#include "interfaces/uplink/RGLinkIfaceInfo.h"
#include "interfaces/uplink/WanIfaceInfo.h"
#include "log.h"
#include "peers/bus/appliance_services.h"
#include "policy/balance/load_balance.h"
#include "result_codes.h"
#include "utils/files.h"
#include "utils/handles.h"
#include "utils/json_text.h"

namespace {

constexpr int kEverywhere = 0;  // mode of get_ifname(): ports of all kinds

template <int (*edit)(int op)>
nm::Answer edit_all_tunnels(const Json::Value& arguments) {
    const int ret = edit(nm::number_argument(arguments, "op"));
    if (ret != NM_OK) {
        NM_LOG(Error) << "edit_tunnels() failed, ret: " << ret;
    }
    return {ret, ""};
}

template <int (*balance)(std::string path)>
nm::Answer balance_load() {
    const int ret = balance(kDeviceInfoPath);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Setup_lan_to_wan_load_balance fail. ret = " << ret;
    }
    return {ret, ""};
}

/// What a request about one interface means by `portname` or `ifname`.
struct Interface {
    std::string ifname;
    int type = 0;  ///< as create_INFO() numbers them
};

int type_of(const std::string& role) {
    static const std::map<std::string, int> types{{"WAN", 1}, {"LAN", 2}, {"PRIVATE", 4}, {"RGLINK", 5}};
    const auto type = types.find(role);
    return type != types.end() ? type->second : 0;
}

std::string role_of_interface(const std::string& ifname, Json::Value& device) {
    const int number = get_ifacetype_by_ifname(ifname, device);
    for (const auto& [role, kind] : ifacetype_map) {
        if (kind == number) {
            return role;
        }
    }
    return "";
}

int find_interface(const Json::Value& arguments, Interface& found) {
    Json::Value device;
    const int ret = json_file_to_mem(kDeviceInfoPath, device);
    if (ret < 0) {
        return ret;
    }
    const std::string portname = nm::text_argument(arguments, "portname");
    found.ifname = nm::device_of(nm::text_argument(arguments, "ifname"));
    std::string role;
    if (!portname.empty()) {
        found.ifname = nm::device_of(get_ifname(device, portname, kEverywhere));
        (void)get_port_role(portname, device, role);  // an unknown port has no name either
    } else {
        role = role_of_interface(found.ifname, device);
    }
    found.type = type_of(role);
    return found.ifname.empty() || found.type == 0 ? NM_ERR_NO_IFACE : NM_OK;
}

int renew(BaseIfaceInfo& info, int type) {
    const nm::LockGuard lock(info.get_ifname());
    if (!lock.held()) {
        return NM_ERR_LOCK;
    }
    (void)info.disable_ipv4(0);  // logged; a new lease heals what is left of the old one
    return info.setup_ipv4(static_cast<uint32_t>(type));
}

}  // namespace

namespace nm::work {

Answer edit_wan_tunnels(const Json::Value& arguments) {
    return edit_all_tunnels<edit_tunnels>(arguments);
}

Answer edit_private_port_tunnels(const Json::Value& arguments) {
    return edit_all_tunnels<edit_private_tunnels>(arguments);
}

Answer edit_link_tunnels(const Json::Value& arguments) {
    return edit_all_tunnels<edit_rglink_tunnels>(arguments);
}

Answer balance_clients(const Json::Value&) {
    return balance_load<setup_lan_to_wan_load_balance>();
}

Answer balance_sites(const Json::Value&) {
    return balance_load<setup_site_to_site_load_balance>();
}

Answer renew_lease(const Json::Value& arguments) {
    if (text_argument(arguments, "portname").empty() && text_argument(arguments, "ifname").empty()) {
        return refuse({NM_ERR_EMPTY, "Arg. [portname] or [ifname] should not be empty!"});
    }
    Interface found;
    int ret = find_interface(arguments, found);
    if (ret != NM_OK) {
        return refuse({ret, "Get ifname failed!"});
    }
    BaseIfaceInfo* created = nullptr;
    ret = create_INFO(&created, found.type, found.ifname, kDeviceInfoPath, Json::Value());
    const std::unique_ptr<BaseIfaceInfo> info(created);
    if (info == nullptr) {
        return refuse({ret, "Create WanIfaceInfo instance failed."});
    }
    if (info->get_ip4_type() != "DHCP") {
        return refuse({NM_ERR_BAD_TYPE, "IP4_TYPE is not equal to DHCP!"});
    }
    return {renew(*info, found.type), ""};
}

Answer set_up_vpn(const Json::Value& arguments) {
    const std::string type = text_argument(arguments, "type");
    const std::string path = text_argument(arguments, "path");
    if (type.empty() || path.empty()) {
        return refuse({NM_ERR_EMPTY, "Arg. [type] or [path] should not be empty!"});
    }
    if (!is_file_exists(path)) {
        return refuse({NM_ERR_NOT_FOUND, "Arg. [path] config doesn't exist."});
    }
    if (type != "local_vbelt" && type != "velan_vbelt") {
        return refuse({NM_ERR_BAD_ACT, "Arg. [type] is invalid or not supported."});
    }
    const int ret = Setup_vbelt_server(type, path, number_argument(arguments, "force"));
    return ret != NM_OK ? refuse({ret, "Setup_vbelt_server() failed."}) : Answer{NM_OK, ""};
}

Answer set_up_daemons(const Json::Value& arguments) {
    const std::string local_mgmt = text_argument(arguments, "local_mgmt");
    const std::string dev_id = text_argument(arguments, "dev_id");
    if (local_mgmt.empty() || dev_id.empty()) {
        return {NM_ERR_MGMT_ARG, ""};
    }
    return {setup_velan_deamons(local_mgmt, dev_id), ""};
}

}  // namespace nm::work

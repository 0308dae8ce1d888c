// The handlers that act at once: tunnels, leases, load balancing, VPN, the overlay's daemons, the system's
// log.
#include <array>
#include <map>
#include <memory>
#include <string>

#include "config/nmconfig.h"
#include "config/port_lookup.h"
#include "config/schema.h"
#include "control/handlers/vs_reply.h"
#include "interfaces/create_info.h"
#include "interfaces/uplink/PrivateIfaceInfo.h"
#include "interfaces/uplink/RGLinkIfaceInfo.h"
#include "interfaces/uplink/WanIfaceInfo.h"
#include "log.h"
#include "peers/bus/appliance_services.h"
#include "peers/logs/event_log.h"
#include "policy/balance/load_balance.h"
#include "result_codes.h"
#include "utils/files.h"
#include "utils/handles.h"
#include "utils/json_text.h"

namespace {

constexpr const char* kMain = "MAIN";
constexpr const char* kApi = "API";
constexpr int kEverywhere = 0;  // mode of get_ifname(): ports of all kinds

nm::Answer refuse(int error, const char* words) {
    NM_LOG(Error) << words;
    return {error, words};
}

template <int (*edit)(int op)>
nm::Answer edit_all_tunnels(const Json::Value& arguments) {
    const int ret = edit(nm::number_argument(arguments, "op"));
    if (ret != NM_OK) {
        NM_LOG(Error) << "edit_tunnels() failed, ret: " << ret;
    }
    return nm::code_answer(ret);
}

template <int (*balance)(std::string path)>
nm::Answer balance_load(const Json::Value&) {
    const int ret = balance(kDeviceInfoPath);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Setup_lan_to_wan_load_balance fail. ret = " << ret;
    }
    return nm::code_answer(ret);
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
    found.ifname = nm::text_argument(arguments, "ifname");
    std::string role;
    if (!portname.empty()) {
        found.ifname = get_ifname(device, portname, kEverywhere);
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

nm::Answer renew_lease(const Json::Value& arguments) {
    if (nm::text_argument(arguments, "portname").empty() && nm::text_argument(arguments, "ifname").empty()) {
        return refuse(NM_ERR_EMPTY, "Arg. [portname] or [ifname] should not be empty!");
    }
    Interface found;
    int ret = find_interface(arguments, found);
    if (ret != NM_OK) {
        return refuse(ret, "Get ifname failed!");
    }
    BaseIfaceInfo* created = nullptr;
    ret = create_INFO(&created, found.type, found.ifname, kDeviceInfoPath, Json::Value());
    const std::unique_ptr<BaseIfaceInfo> info(created);
    if (info == nullptr) {
        return refuse(ret, "Create WanIfaceInfo instance failed.");
    }
    if (info->get_ip4_type() != "DHCP") {
        return refuse(NM_ERR_BAD_TYPE, "IP4_TYPE is not equal to DHCP!");
    }
    return {renew(*info, found.type), ""};
}

nm::Answer set_up_vpn(const Json::Value& arguments) {
    const std::string type = nm::text_argument(arguments, "type");
    const std::string path = nm::text_argument(arguments, "path");
    if (type.empty() || path.empty()) {
        return refuse(NM_ERR_EMPTY, "Arg. [type] or [path] should not be empty!");
    }
    if (!is_file_exists(path)) {
        return refuse(NM_ERR_NOT_FOUND, "Arg. [path] config doesn't exist.");
    }
    if (type != "local_vbelt" && type != "velan_vbelt") {
        return refuse(NM_ERR_BAD_ACT, "Arg. [type] is invalid or not supported.");
    }
    const int ret = Setup_vbelt_server(type, path, nm::number_argument(arguments, "force"));
    return ret != NM_OK ? refuse(ret, "Setup_vbelt_server() failed.") : nm::Answer{NM_OK, ""};
}

nm::Answer set_up_daemons(const Json::Value& arguments) {
    const std::string local_mgmt = nm::text_argument(arguments, "local_mgmt");
    const std::string dev_id = nm::text_argument(arguments, "dev_id");
    if (local_mgmt.empty() || dev_id.empty()) {
        return nm::code_answer(NM_ERR_MGMT_ARG);
    }
    return nm::code_answer(setup_velan_deamons(local_mgmt, dev_id));
}

/// Messages about links: by the role of the port, and within it whether the link came or went.
const std::map<std::string, size_t>& port_roles() {
    static const std::map<std::string, size_t> roles{{"WAN", 0}, {"PRIVATE", 2}, {"RGLINK", 4}, {"LAN", 6}};
    return roles;
}

size_t carrier_index(const std::string& carrier) {
    return carrier == "up" || carrier == "1" ? 0 : 1;
}

constexpr std::array kCarrierMessages{"320", "321", "322", "323", "324", "325", "326", "327"};

nm::Answer report_carrier(const Json::Value& arguments) {
    const std::string ifname = nm::text_argument(arguments, "ifname");
    const std::string carrier = nm::text_argument(arguments, "carrier");
    if (ifname.empty()) {
        return refuse(NM_ERR_EMPTY, "Arg. [ifname] should not be empty!");
    }
    if (carrier.empty()) {
        return refuse(NM_ERR_EMPTY, "Arg. [carrier] should not be empty!");
    }
    std::string port;
    int ret = get_portname_by_ifname(ifname, std::string(kDeviceInfoPath), port);
    if (ret != NM_OK) {
        return refuse(ret, "Get portname failed!");
    }
    std::string role;
    ret = get_port_role(port, std::string(kDeviceInfoPath), role);
    const auto first = port_roles().find(role);
    if (ret != NM_OK || first == port_roles().end()) {
        return refuse(ret != NM_OK ? ret : NM_ERR_NO_IFACE, "Get port role failed!");
    }
    const size_t message = first->second + carrier_index(carrier);
    return {vslog_send({kUplinkEvents, kCarrierMessages.at(message), {port_number_text(port)}}), ""};
}

}  // namespace

int Edit_tunnels(vs_io* io, int socket) {
    return nm::serve(io, socket, __PRETTY_FUNCTION__, {kMain, true, edit_all_tunnels<edit_tunnels>});
}

int Edit_private_tunnels(vs_io* io, int socket) {
    return nm::serve(io, socket, __PRETTY_FUNCTION__, {kMain, true, edit_all_tunnels<edit_private_tunnels>});
}

int Edit_rglink_tunnels(vs_io* io, int socket) {
    return nm::serve(io, socket, __PRETTY_FUNCTION__, {kMain, true, edit_all_tunnels<edit_rglink_tunnels>});
}

int Setup_lan_to_wan_load_balance(vs_io* io, int socket) {
    return nm::serve(io, socket, __PRETTY_FUNCTION__,
                     {kMain, false, balance_load<setup_lan_to_wan_load_balance>});
}

int Setup_site_to_site_load_balance(vs_io* io, int socket) {
    return nm::serve(io, socket, __PRETTY_FUNCTION__,
                     {kMain, false, balance_load<setup_site_to_site_load_balance>});
}

int RenewDHCPClientIP(vs_io* io, int socket) {
    return nm::serve(io, socket, __PRETTY_FUNCTION__, {kMain, true, renew_lease});
}

int Setup_vvpn(vs_io* io, int socket) {
    return nm::serve(io, socket, __PRETTY_FUNCTION__,
                     {kMain, true, set_up_vpn, {NM_ERR_BUS_READ, "IO read failed."}});
}

int SetupVelanDeamons(vs_io* io, int socket) {
    return nm::serve(io, socket, __PRETTY_FUNCTION__,
                     {kMain,
                      true,
                      set_up_daemons,
                      {NM_ERR_BUS_DAEMON_READ, "IO Read failed."},
                      {NM_ERR_MGMT_ARG, "Json parse failed."}});
}

int SyslogCarrierStat(vs_io* io, int socket) {
    return nm::serve(io, socket, __PRETTY_FUNCTION__, {kApi, true, report_carrier});
}

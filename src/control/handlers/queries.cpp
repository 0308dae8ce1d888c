// The handlers that only read: what ports, interfaces and documents are like now.
#include <algorithm>
#include <array>
#include <string>
#include <utility>
#include <vector>

#include "config/nmconfig.h"
#include "config/port_lookup.h"
#include "control/handlers/reports.h"
#include "control/handlers/vs_reply.h"
#include "interfaces/uplink/available_info.h"
#include "log.h"
#include "result_codes.h"
#include "utils/json_keys.h"
#include "utils/json_text.h"

namespace {

constexpr const char* kApi = "API";
constexpr bool kWithArguments = true;

using Uplinks = std::vector<available_base_wan_status>;

template <int (*collect)(Uplinks& records, std::string path, int comprehensive)>
nm::Answer report_uplinks(const Json::Value& arguments) {
    const int comprehensive = nm::number_argument(arguments, "comprehensive");
    Uplinks records;
    const int ret = collect(records, nm::path_argument(arguments), comprehensive);
    return nm::query_answer(ret, nm::status_json(records, comprehensive != 0));
}

nm::Answer report_lans(const Json::Value& arguments) {
    Json::Value lans;
    const int ret = get_available_lan_info(lans, nm::path_argument(arguments),
                                           nm::number_argument(arguments, "comprehensive"));
    return nm::query_answer(ret, lans);
}

nm::Answer list_lans(const Json::Value&) {
    Json::Value device;
    Json::Value lans;
    const int ret = json_file_to_mem(kDeviceInfoPath, device);
    lans["lan"] = Json::arrayValue;
    std::vector<std::string> names;
    if (ret >= 0 && get_key_list(device, "LAN_IFACE_INFO", names) == NM_OK) {
        for (const std::string& name : names) {
            lans["lan"].append(name);
        }
    }
    return nm::query_answer(ret, lans);
}

nm::Answer count_wan_traffic(const Json::Value&) {
    Json::Value counters;
    const int ret = nm::count_traffic("WAN_PORT", kDeviceInfoPath, counters);
    return nm::query_answer(ret, counters);
}

nm::Answer count_private_traffic(const Json::Value&) {
    Json::Value counters;
    const int ret = nm::count_traffic("PRIVATE_PORT", kDeviceInfoPath, counters);
    return nm::query_answer(ret, counters);
}

/// The number by which a look-up is restricted to the ports of a kind; 0 for all.
int mode_of(const std::string& type) {
    constexpr std::array modes{std::pair{"WAN", 1}, std::pair{"LAN", 2}, std::pair{"PRILINK", 4},
                               std::pair{"RGLINK", 5}};
    const auto* const row =
        std::find_if(modes.begin(), modes.end(), [&type](const auto& mode) { return type == mode.first; });
    return row != modes.end() ? row->second : 0;
}

nm::Answer find_ifname(const Json::Value& arguments) {
    std::string ifname;
    const int ret =
        get_ifname_by_portname(nm::text_argument(arguments, "portname"), nm::path_argument(arguments), ifname,
                               mode_of(nm::text_argument(arguments, "type")));
    return nm::query_answer(ret, ifname);
}

nm::Answer show_default(const Json::Value& arguments) {
    constexpr std::array known{"device_info",  "hw_port_info",  "dhcp_service", "firewall",
                               "policy",       "segment",       "site",         "qos",
                               "static_route", "static_route6", "servicePort",  "system_svc_mgmt"};
    const std::string type = nm::text_argument(arguments, "type");
    if (std::find(known.begin(), known.end(), type) == known.end()) {
        NM_LOG(Error) << "type is not suuport!";
        return {NM_ERR_BAD_ACT, "type is not suuport!"};
    }
    const std::string path = "/usr/lib/networkmanagement/etc/default_config/" + type + ".json";
    Json::Value document;
    const int ret = json_file_to_mem(path, document);
    if (ret < 0) {
        NM_LOG(Error) << "Failed to load " << path;
    }
    return nm::query_answer(ret, document);
}

nm::Answer report_delegations(const Json::Value& arguments) {
    Json::Value data;
    const int ret = get_all_wan_dhcp_pd_info(data, nm::path_argument(arguments));
    return nm::query_answer(ret, data);
}

nm::Answer report_lan_ports(const Json::Value& arguments) {
    Json::Value data;
    const int ret = nm::lan_port_records(nm::path_argument(arguments), data);
    return nm::query_answer(ret, data);
}

nm::Answer report_versions(const Json::Value& arguments) {
    Json::Value data;
    get_configs_meta_info(data, nm::path_argument(arguments));
    return {NM_OK, data, true, "1.0"};
}

}  // namespace

int Get_available_wan_info(vs_io* io, int socket) {
    return nm::serve(io, socket, __PRETTY_FUNCTION__,
                     {kApi, kWithArguments, report_uplinks<get_available_wan_info>});
}

int Get_available_private_info(vs_io* io, int socket) {
    return nm::serve(io, socket, __PRETTY_FUNCTION__,
                     {kApi, kWithArguments, report_uplinks<get_available_private_info>});
}

int Get_available_rglink_info(vs_io* io, int socket) {
    return nm::serve(io, socket, __PRETTY_FUNCTION__,
                     {kApi, kWithArguments, report_uplinks<get_available_rglink_info>});
}

int Get_available_lan_info(vs_io* io, int socket) {
    return nm::serve(io, socket, __PRETTY_FUNCTION__, {kApi, kWithArguments, report_lans});
}

int Get_lanif_list(vs_io* io, int socket) {
    return nm::serve(io, socket, __PRETTY_FUNCTION__, {kApi, !kWithArguments, list_lans});
}

int Get_wan_rxtx_stats(vs_io* io, int socket) {
    return nm::serve(io, socket, __PRETTY_FUNCTION__, {kApi, !kWithArguments, count_wan_traffic});
}

int Get_private_rxtx_stats(vs_io* io, int socket) {
    return nm::serve(io, socket, __PRETTY_FUNCTION__, {kApi, !kWithArguments, count_private_traffic});
}

int Get_ifname_by_portname(vs_io* io, int socket) {
    return nm::serve(io, socket, __PRETTY_FUNCTION__, {kApi, kWithArguments, find_ifname});
}

int Get_default_config(vs_io* io, int socket) {
    return nm::serve(io, socket, __PRETTY_FUNCTION__, {kApi, kWithArguments, show_default});
}

int GetPrefixDelegationStatus(vs_io* io, int socket) {
    return nm::serve(io, socket, __PRETTY_FUNCTION__, {kApi, kWithArguments, report_delegations});
}

int GetLanPortInfo(vs_io* io, int socket) {
    return nm::serve(io, socket, __PRETTY_FUNCTION__, {kApi, kWithArguments, report_lan_ports});
}

int GetConfigsMetaInfo(vs_io* io, int socket) {
    return nm::serve(io, socket, __PRETTY_FUNCTION__, {kApi, kWithArguments, report_versions});
}

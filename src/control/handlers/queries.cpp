// The handlers that only read: what ports, interfaces and documents are like now.
#include <algorithm>
#include <array>
#include <string>
#include <utility>
#include <vector>

#include "config/nmconfig.h"
#include "config/port_lookup.h"
#include "control/handlers/reports.h"
#include "control/handlers/works.h"
#include "interfaces/uplink/available_info.h"
#include "log.h"
#include "result_codes.h"
#include "utils/json_keys.h"
#include "utils/json_text.h"

namespace {

using Uplinks = std::vector<available_base_wan_status>;

template <int (*collect)(Uplinks& records, std::string path, int comprehensive)>
nm::Answer report_uplinks(const Json::Value& arguments) {
    const int comprehensive = nm::number_argument(arguments, "comprehensive");
    Uplinks records;
    const int ret = collect(records, nm::path_argument(arguments), comprehensive);
    return nm::query_answer(ret, nm::status_json(records, comprehensive != 0));
}

/// The number by which a look-up is restricted to the ports of a kind; 0 for all.
int mode_of(const std::string& type) {
    constexpr std::array modes{std::pair{"WAN", 1}, std::pair{"LAN", 2}, std::pair{"PRILINK", 4},
                               std::pair{"RGLINK", 5}};
    const auto* const row =
        std::find_if(modes.begin(), modes.end(), [&type](const auto& mode) { return type == mode.first; });
    return row != modes.end() ? row->second : 0;
}

}  // namespace

namespace nm::work {

Answer report_wans(const Json::Value& arguments) {
    return report_uplinks<get_available_wan_info>(arguments);
}

Answer report_private_ports(const Json::Value& arguments) {
    return report_uplinks<get_available_private_info>(arguments);
}

Answer report_links(const Json::Value& arguments) {
    return report_uplinks<get_available_rglink_info>(arguments);
}

Answer report_lans(const Json::Value& arguments) {
    Json::Value lans;
    const int ret =
        get_available_lan_info(lans, path_argument(arguments), number_argument(arguments, "comprehensive"));
    return query_answer(ret, lans);
}

Answer list_lans(const Json::Value&) {
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
    return query_answer(ret, lans);
}

Answer count_wan_traffic(const Json::Value&) {
    Json::Value counters;
    const int ret = count_traffic("WAN_PORT", kDeviceInfoPath, counters);
    return query_answer(ret, counters);
}

Answer count_private_traffic(const Json::Value&) {
    Json::Value counters;
    const int ret = count_traffic("PRIVATE_PORT", kDeviceInfoPath, counters);
    return query_answer(ret, counters);
}

Answer find_ifname(const Json::Value& arguments) {
    std::string ifname;
    const int ret = get_ifname_by_portname(text_argument(arguments, "portname"), path_argument(arguments),
                                           ifname, mode_of(text_argument(arguments, "type")));
    return query_answer(ret, ifname);
}

Answer show_default(const Json::Value& arguments) {
    constexpr std::array known{"device_info",  "hw_port_info",  "dhcp_service", "firewall",
                               "policy",       "segment",       "site",         "qos",
                               "static_route", "static_route6", "servicePort",  "system_svc_mgmt"};
    const std::string type = text_argument(arguments, "type");
    if (std::find(known.begin(), known.end(), type) == known.end()) {
        return refuse({NM_ERR_BAD_ACT, "type is not suuport!"});
    }
    const std::string path = NM_PRIVATE_DIR "/etc/default_config/" + type + ".json";
    Json::Value document;
    const int ret = json_file_to_mem(path, document);
    if (ret < 0) {
        NM_LOG(Error) << "Failed to load " << path;
    }
    return query_answer(ret, document);
}

Answer report_delegations(const Json::Value& arguments) {
    Json::Value data;
    const int ret = get_all_wan_dhcp_pd_info(data, path_argument(arguments));
    return query_answer(ret, data);
}

Answer report_lan_ports(const Json::Value& arguments) {
    Json::Value data;
    const int ret = lan_port_records(path_argument(arguments), data);
    return query_answer(ret, data);
}

Answer report_versions(const Json::Value& arguments) {
    Json::Value data;
    get_configs_meta_info(data, path_argument(arguments));
    return {NM_OK, data};
}

}  // namespace nm::work

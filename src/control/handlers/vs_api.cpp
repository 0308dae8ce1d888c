// The methods of the service daemon: the table that describes them, and the exported functions, which are
// found in it when the library is compiled.
#include "control/handlers/vs_api.h"

#include <array>

#include "control/handlers/works.h"

namespace {

using nm::Method;
using namespace nm::work;

constexpr const char* kMain = "MAIN";
constexpr const char* kApi = "API";

constexpr const char* kReport = "path comprehensive";
constexpr const char* kUplinks = "`uplinks.json`";
constexpr const char* kWords = "text: what was refused";
constexpr const char* kSteps = "codes of reading, migrating, applying and writing";
constexpr const char* kReading = "codes of reading `path`";

constexpr std::array kMethods{
    Method{{"Setup_firewall", Setup_firewall, "", kWords, kSteps, kMain}, set_up_firewall},
    Method{{"Setup_policy", Setup_policy, "", kWords, kSteps, kMain}, set_up_policy},
    Method{{"Setup_segment", Setup_segment, "", kWords, kSteps, kMain}, set_up_segment},
    Method{{"Setup_static_route", Setup_static_route, "", kWords, kSteps, kMain}, set_up_ip4_routes},
    Method{{"SetupStaticRoute6", SetupStaticRoute6, "", kWords, kSteps, kMain}, set_up_ip6_routes},
    Method{{"Setup_qos", Setup_qos, "", "", kSteps, kMain}, set_up_qos},
    Method{{"Setup_lan_to_wan_load_balance", Setup_lan_to_wan_load_balance, "", "", "codes of the rule set",
            kMain},
           balance_clients},
    Method{{"Setup_site_to_site_load_balance", Setup_site_to_site_load_balance, "", "",
            "codes of the rule set", kMain},
           balance_sites},
    Method{{"Edit_tunnels", Edit_tunnels, "op", "", "codes of the tunnels", kMain}, edit_wan_tunnels},
    Method{{"Edit_private_tunnels", Edit_private_tunnels, "op", "", "codes of the tunnels", kMain},
           edit_private_port_tunnels},
    Method{{"Edit_rglink_tunnels", Edit_rglink_tunnels, "op", "", "codes of the tunnels", kMain},
           edit_link_tunnels},
    Method{{"Setup_vvpn", Setup_vvpn, "type path force", kWords,
            "-1022 no `type` or `path`; -1020 no such file; -1001 another `type`; codes of the call", kMain},
           set_up_vpn,
           "1.1",
           {NM_ERR_BUS_READ, "IO read failed."}},
    Method{{"SetupVelanDeamons", SetupVelanDeamons, "local_mgmt dev_id", "",
            "-1901 no `local_mgmt` or `dev_id`, or no JSON; -1604 no text; codes of the call", kMain},
           set_up_daemons,
           "1.1",
           {NM_ERR_BUS_DAEMON_READ, "IO Read failed."},
           {NM_ERR_MGMT_ARG, "Json parse failed."},
           {NM_ERR_MGMT_ARG, "root is not valid format"}},
    Method{{"RenewDHCPClientIP", RenewDHCPClientIP, "portname ifname", kWords,
            "-1022 neither of them; -1002 no such interface; -1008 not DHCP; -1015 lock; codes of the client",
            kMain},
           renew_lease},
    Method{
        {"SyslogCarrierStat", SyslogCarrierStat, "ifname carrier", kWords,
         "-1022 one is missing; -1002 no such port; -1001 another `carrier`; -1011 no record written", kApi},
        report_carrier},
    Method{
        {"FB_log", FB_log, "level cat_id msg_id args", "",
         "-1022 no `cat_id` or `msg_id`; -1045 another `level`; -1012 wrong `args`; -1011 no record written",
         kApi},
        log_event},
    Method{{"Get_available_wan_info", Get_available_wan_info, kReport, kUplinks, kReading, kApi},
           report_wans},
    Method{{"Get_available_private_info", Get_available_private_info, kReport, kUplinks, kReading, kApi},
           report_private_ports},
    Method{{"Get_available_rglink_info", Get_available_rglink_info, kReport, kUplinks, kReading, kApi},
           report_links},
    Method{{"Get_available_lan_info", Get_available_lan_info, kReport, "`lans.json`", kReading, kApi},
           report_lans},
    Method{{"Get_lanif_list", Get_lanif_list, "", "`lan_names.json`", "codes of reading", kApi}, list_lans},
    Method{{"Get_wan_rxtx_stats", Get_wan_rxtx_stats, "", "`counters.json`",
            "codes of reading; -1006, -1023 no answer from the kernel", kApi},
           count_wan_traffic},
    Method{{"Get_private_rxtx_stats", Get_private_rxtx_stats, "", "`counters.json`",
            "codes of reading; -1006, -1023 no answer from the kernel", kApi},
           count_private_traffic},
    Method{{"Get_ifname_by_portname", Get_ifname_by_portname, "path portname type", "text: the interface",
            "-1022 no `portname`; -1002 no such port; codes of reading `path`", kApi},
           find_ifname},
    Method{{"Get_default_config", Get_default_config, "type", "the document",
            "-1001 another `type`; codes of reading", kApi},
           show_default},
    Method{{"GetPrefixDelegationStatus", GetPrefixDelegationStatus, "path", "`prefix_delegations.json`",
            kReading, kApi},
           report_delegations},
    Method{{"GetLanPortInfo", GetLanPortInfo, "path", "`lan_ports.json`", kReading, kApi}, report_lan_ports},
    Method{{"GetConfigsMetaInfo", GetConfigsMetaInfo, "path", "`versions.json`", "always 0", kApi},
           report_versions,
           "1.0"},
};

template <int (*handler)(vs_io*, int)>
constexpr size_t row_of() {
    size_t row = 0;
    while (row < kMethods.size() && kMethods[row].facts.handler != handler) {
        ++row;
    }
    return row;
}

template <int (*handler)(vs_io*, int)>
int serve(vs_io* io, int socket) {
    static_assert(row_of<handler>() < kMethods.size(), "a handler without a row");
    return nm::serve(io, socket, kMethods[row_of<handler>()]);
}

}  // namespace

std::vector<vs_api_method> vs_api_methods() {
    std::vector<vs_api_method> methods;
    methods.reserve(kMethods.size());
    for (const Method& method : kMethods) {
        methods.push_back(method.facts);
    }
    return methods;
}

int Setup_firewall(vs_io* io, int socket) {
    return serve<Setup_firewall>(io, socket);
}

int Setup_policy(vs_io* io, int socket) {
    return serve<Setup_policy>(io, socket);
}

int Setup_segment(vs_io* io, int socket) {
    return serve<Setup_segment>(io, socket);
}

int Setup_static_route(vs_io* io, int socket) {
    return serve<Setup_static_route>(io, socket);
}

int SetupStaticRoute6(vs_io* io, int socket) {
    return serve<SetupStaticRoute6>(io, socket);
}

int Setup_qos(vs_io* io, int socket) {
    return serve<Setup_qos>(io, socket);
}

int Setup_lan_to_wan_load_balance(vs_io* io, int socket) {
    return serve<Setup_lan_to_wan_load_balance>(io, socket);
}

int Setup_site_to_site_load_balance(vs_io* io, int socket) {
    return serve<Setup_site_to_site_load_balance>(io, socket);
}

int Edit_tunnels(vs_io* io, int socket) {
    return serve<Edit_tunnels>(io, socket);
}

int Edit_private_tunnels(vs_io* io, int socket) {
    return serve<Edit_private_tunnels>(io, socket);
}

int Edit_rglink_tunnels(vs_io* io, int socket) {
    return serve<Edit_rglink_tunnels>(io, socket);
}

int Setup_vvpn(vs_io* io, int socket) {
    return serve<Setup_vvpn>(io, socket);
}

int SetupVelanDeamons(vs_io* io, int socket) {
    return serve<SetupVelanDeamons>(io, socket);
}

int RenewDHCPClientIP(vs_io* io, int socket) {
    return serve<RenewDHCPClientIP>(io, socket);
}

int SyslogCarrierStat(vs_io* io, int socket) {
    return serve<SyslogCarrierStat>(io, socket);
}

int FB_log(vs_io* io, int socket) {
    return serve<FB_log>(io, socket);
}

int Get_available_wan_info(vs_io* io, int socket) {
    return serve<Get_available_wan_info>(io, socket);
}

int Get_available_private_info(vs_io* io, int socket) {
    return serve<Get_available_private_info>(io, socket);
}

int Get_available_rglink_info(vs_io* io, int socket) {
    return serve<Get_available_rglink_info>(io, socket);
}

int Get_available_lan_info(vs_io* io, int socket) {
    return serve<Get_available_lan_info>(io, socket);
}

int Get_lanif_list(vs_io* io, int socket) {
    return serve<Get_lanif_list>(io, socket);
}

int Get_wan_rxtx_stats(vs_io* io, int socket) {
    return serve<Get_wan_rxtx_stats>(io, socket);
}

int Get_private_rxtx_stats(vs_io* io, int socket) {
    return serve<Get_private_rxtx_stats>(io, socket);
}

int Get_ifname_by_portname(vs_io* io, int socket) {
    return serve<Get_ifname_by_portname>(io, socket);
}

int Get_default_config(vs_io* io, int socket) {
    return serve<Get_default_config>(io, socket);
}

int GetPrefixDelegationStatus(vs_io* io, int socket) {
    return serve<GetPrefixDelegationStatus>(io, socket);
}

int GetLanPortInfo(vs_io* io, int socket) {
    return serve<GetLanPortInfo>(io, socket);
}

int GetConfigsMetaInfo(vs_io* io, int socket) {
    return serve<GetConfigsMetaInfo>(io, socket);
}

// Setup of WAN ports and their addressing: the families' rows.
#include "control/setup_wan.h"

#include "config/tcp_window.h"
#include "control/setup_frame.h"
#include "interfaces/uplink/WanIfaceInfo.h"
#include "interfaces/uplink/WanInterface.h"
#include "policy/balance/load_balance.h"

int _setup_wanif(std::string name, uint32_t act, uint32_t opt, std::string path, Json::Value cfg) {
    static const nm::Family<WanInterface> family{
        "WanInterface",
        create_WAN,
        [](WanInterface& wan, const std::string&) { return wan.get_interface(); },
        &WanInterface::add_if,
        &WanInterface::del_if,
        &WanInterface::alt_if,
    };
    return nm::run_target(family, {std::move(name), act, opt, std::move(path), std::move(cfg)});
}

int setup_wanif(char* json) {
    static const nm::RequestFamily family{
        _setup_wanif,
        {scale_tcp_window, setup_site_to_site_load_balance, setup_lan_to_wan_load_balance,
         setup_local_single_wan_nf_condiftion}};
    return nm::run_request(json, family);
}

int Setup_wanif(char* json) {
    return nm::run_entry(__PRETTY_FUNCTION__, [json] { return setup_wanif(json); });
}

int _setup_waninfo(std::string name, uint32_t act, uint32_t opt, std::string path, Json::Value cfg) {
    static const nm::Family<WanIfaceInfo> family{
        "WanIfaceInfo",
        create_WAN_INFO,
        [](WanIfaceInfo&, const std::string& ifname) { return ifname; },
        &WanIfaceInfo::add_info,
        &WanIfaceInfo::del_info,
        &WanIfaceInfo::alt_info,
    };
    return nm::run_target(family, {std::move(name), act, opt, std::move(path), std::move(cfg)});
}

int setup_waninfo(char* json) {
    static const nm::RequestFamily family{_setup_waninfo, {}};
    return nm::run_request(json, family);
}

int Setup_waninfo(char* json) {
    return nm::run_entry(__PRETTY_FUNCTION__, [json] { return setup_waninfo(json); });
}

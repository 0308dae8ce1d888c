// Setup of WAN ports and their addressing.
#include "control/setup_wan.h"

#include "config/tcp_window.h"
#include "control/setup_frame.h"
#include "control/uplink_target.h"
#include "policy/balance/load_balance.h"

int _setup_wanif(std::string name, uint32_t act, uint32_t opt, std::string path, Json::Value cfg) {
    return nm::run_uplink_device<KIND_WAN>({std::move(name), act, opt, std::move(path), std::move(cfg)});
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
    return nm::run_uplink_info<KIND_WAN>({std::move(name), act, opt, std::move(path), std::move(cfg)});
}

int setup_waninfo(char* json) {
    static const nm::RequestFamily family{_setup_waninfo, {}};
    return nm::run_request(json, family);
}

int Setup_waninfo(char* json) {
    return nm::run_entry(__PRETTY_FUNCTION__, [json] { return setup_waninfo(json); });
}

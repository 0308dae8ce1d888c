// Setup of RGLinks and their addressing.
#include "control/setup_rglink.h"

#include "config/tcp_window.h"
#include "control/setup_frame.h"
#include "control/uplink_target.h"
#include "policy/balance/load_balance.h"

int _setup_rglinkif(std::string name, uint32_t act, uint32_t opt, std::string path, Json::Value cfg) {
    return nm::run_uplink_device<KIND_RGLINK>({std::move(name), act, opt, std::move(path), std::move(cfg)});
}

int setup_rglinkif(char* json) {
    return nm::run_request(json, {_setup_rglinkif, {scale_tcp_window, setup_site_to_site_load_balance}});
}

int Setup_rglinkif(char* json) {
    return nm::run_entry(__PRETTY_FUNCTION__, [json] { return setup_rglinkif(json); });
}

int _setup_rglinkinfo(std::string name, uint32_t act, uint32_t opt, std::string path, Json::Value cfg) {
    return nm::run_uplink_info<KIND_RGLINK>({std::move(name), act, opt, std::move(path), std::move(cfg)});
}

int setup_rglinkinfo(char* json) {
    return nm::run_request(json, {_setup_rglinkinfo, {}});
}

int Setup_rglinkinfo(char* json) {
    return nm::run_entry(__PRETTY_FUNCTION__, [json] { return setup_rglinkinfo(json); });
}

// Setup of private ports and their addressing.
#include "control/setup_private.h"

#include "config/tcp_window.h"
#include "control/setup_frame.h"
#include "control/uplink_target.h"
#include "policy/balance/load_balance.h"

int _setup_privateif(std::string name, uint32_t act, uint32_t opt, std::string path, Json::Value cfg) {
    return nm::run_uplink_device<KIND_PRIVATE>({std::move(name), act, opt, std::move(path), std::move(cfg)});
}

int setup_privateif(char* json) {
    return nm::run_request(json, {_setup_privateif, {scale_tcp_window, setup_site_to_site_load_balance}});
}

int Setup_privateif(char* json) {
    return nm::run_entry(__PRETTY_FUNCTION__, [json] { return setup_privateif(json); });
}

int _setup_privateinfo(std::string name, uint32_t act, uint32_t opt, std::string path, Json::Value cfg) {
    return nm::run_uplink_info<KIND_PRIVATE>({std::move(name), act, opt, std::move(path), std::move(cfg)});
}

int setup_privateinfo(char* json) {
    return nm::run_request(json, {_setup_privateinfo, {}});
}

int Setup_privateinfo(char* json) {
    return nm::run_entry(__PRETTY_FUNCTION__, [json] { return setup_privateinfo(json); });
}

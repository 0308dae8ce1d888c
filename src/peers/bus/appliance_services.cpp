// Calls to the appliance's services.
#include "peers/bus/appliance_services.h"

#include "log.h"
#include "peers/bus/bus_exchange.h"
#include "result_codes.h"
#include "utils/json_text.h"

namespace {

int tell(const std::string& service, const std::string& method, const Json::Value& request) {
    std::string output;
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(nm::call_service(service, method, nm::write_compact_json(request), output));
}

/// The services write a flag as boolean, number or text.
bool is_set(const Json::Value& flag) {
    if (flag.isString()) {
        const std::string text = flag.asString();
        return text == "1" || text == "true";
    }
    return flag.isBool() ? flag.asBool() : flag.isNumeric() && flag.asDouble() != 0;
}

}  // namespace

int get_license_info(Json::Value& info) {
    Json::Value state;
    const int ret = nm::ask_for_value("license", "GetLicenseInfo", state);
    if (ret != NM_OK) {
        return ret;
    }
    if (!state.isObject()) {
        return nm::refuse_answer(state);
    }
    info = state;
    return NM_OK;
}

bool is_license_expired() {
    Json::Value info;
    return get_license_info(info) == NM_OK && is_set(nm::json_member(info, "expired"));
}

bool is_local_mgmt() {
    Json::Value answer;
    return nm::ask_for_value("ncaas", "get_local_mgmt", answer) == NM_OK && is_set(answer);
}

int setup_velan_deamons(std::string local_mgmt, std::string dev_id) {
    Json::Value request;
    request["local_mgmt"] = local_mgmt;
    request["dev_id"] = dev_id;
    return tell("das", "apply_devid_mgmt", request);
}

int Setup_vbelt_server(std::string type, std::string path, int force) {
    Json::Value request;
    request["type"] = type;
    request["path"] = path;
    request["force"] = force;
    return tell("VelanWsd.service", "Setup_vbelt_server", request);
}

int update_network_info(int timeout_seconds) {
    NM_LOG(Debug) << "Enter";
    std::string text;
    int ret = nm::exchange("nm-hmgr", "UpdateLansInfo", nm::write_compact_json(Json::objectValue),
                           timeout_seconds, text);
    Json::Value reply;
    int error = NM_OK;
    if (ret == NM_OK) {
        ret = nm::read_envelope(text, reply, error) ? error : NM_ERR_PARSE;
    }
    if (ret != NM_OK) {
        NM_LOG(Error) << "vsh nm-hmgr.UpdateLansInfo failed, ret: " << ret;
    }
    return NM_EXIT(ret);
}

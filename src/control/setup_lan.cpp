// Setup of LANs: the families' rows.
#include "control/setup_lan.h"

#include <algorithm>
#include <vector>

#include "config/schema.h"
#include "control/setup_frame.h"
#include "interfaces/lan/LanIfaceInfo.h"
#include "interfaces/lan/LanInterface.h"
#include "interfaces/lan/VlanBrif.h"
#include "peers/bus/service_bus.h"
#include "services/radv/radvd.h"

namespace {

template <class Lan>
int setup_Lan(nm::Target target) {
    static const nm::Family<Lan> family{
        "LanInterface", create_LAN,   [](Lan& lan, const std::string&) { return lan.get_interface(); },
        &Lan::add_if,   &Lan::del_if, &Lan::alt_if,
        nullptr,
    };
    return nm::run_target(family, std::move(target));
}

/// The models whose LAN ports are of one kind, and how such a port is worked.
struct PortKind {
    const std::vector<std::string>& models;
    int (*setup)(nm::Target target);
};

int setup_by_model(const std::string& model, nm::Target target) {
    static const PortKind kinds[] = {{port_based_model_list, setup_Lan<PortLanInterface>},
                                     {tag_based_model_list, setup_Lan<TagLanInterface>}};
    for (const PortKind& kind : kinds) {
        if (std::count(kind.models.begin(), kind.models.end(), model) != 0) {
            return kind.setup(std::move(target));
        }
    }
    NM_LOG(Error) << "model [" << model << "] is not spport!";
    return NM_ERR_BAD_TYPE;
}

}  // namespace

int _setup_lanif(std::string port, uint32_t act, uint32_t opt, std::string path, Json::Value config) {
    std::string model;
    const int ret = get_model(model);
    if (ret != NM_OK) {
        return ret;
    }
    if (model.empty()) {
        NM_LOG(Error) << "model is empty!";
        return NM_ERR_EMPTY;
    }
    if (act == ACT_DEL && opt == OPT_LAN_ALL) {
        path = kDeviceInfoPath;
        config = Json::Value();
    }
    return setup_by_model(model, {std::move(port), act, opt, std::move(path), std::move(config)});
}

int _setup_laninfo(std::string name, uint32_t act, uint32_t opt, std::string path, Json::Value cfg) {
    static const nm::Family<LanIfaceInfo> family{
        "LanIfaceInfo",
        create_LAN_INFO,
        [](LanIfaceInfo&, const std::string& key) { return key; },
        &LanIfaceInfo::add_info,
        &LanIfaceInfo::del_info,
        &LanIfaceInfo::alt_info,
    };
    return nm::run_target(family, {std::move(name), act, opt, std::move(path), std::move(cfg)});
}

int setup_vlanbr(char* json) {
    return nm::run_request(json, {_setup_vlanbr, {}});
}

int setup_lanif(char* json) {
    return nm::run_request(json, {_setup_lanif, {}});
}

/// The LANs of one request share one start of the advertisements.
int setup_laninfo(char* json) {
    nm::RadvdHold advertisements;
    const int ret = nm::run_request(json, {_setup_laninfo, {}});
    const int advertised = advertisements.release();
    return ret != NM_OK ? ret : advertised;
}

int Setup_vlanbr(char* json) {
    return nm::run_entry(__PRETTY_FUNCTION__, [json] { return setup_vlanbr(json); });
}

int Setup_lanif(char* json) {
    return nm::run_entry(__PRETTY_FUNCTION__, [json] { return setup_lanif(json); });
}

int Setup_laninfo(char* json) {
    return nm::run_entry(__PRETTY_FUNCTION__, [json] { return setup_laninfo(json); });
}

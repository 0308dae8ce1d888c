// The section `TOPOLOGY` of the device document.
#include "services/sections/Topology.h"

#include <utility>

#include "config/nmconfig.h"
#include "log.h"
#include "peers/bus/service_bus.h"
#include "result_codes.h"
#include "utils/files.h"
#include "utils/json_text.h"
#include "utils/process.h"

namespace {

constexpr uint32_t kVpnSwitched = 0x01;

int switch_ipsec(bool on) {
    const std::string method = on ? "ipsec.start" : "ipsec.stop";
    std::string input;
    std::string output;
    const int ret = vservice_call("rmgmtd", method, input, output, false);
    if (ret != NM_OK) {
        NM_LOG(Error) << "vsh rmgmtd." << method << " failed, ret: " << ret;
    }
    return ret;
}

void reconfigure_site_info() {
    const int ret = system_cmd("/usr/sbin/nm_bin site_info -l -r &");
    if (ret != NM_OK) {
        NM_LOG(Error) << "Reconfigure site info failed, ret: " << ret;
    }
}

}  // namespace

TopologyBase::TopologyBase(std::string type, std::string path, uint32_t opt, uint32_t act)
    : type(std::move(type)), path(std::move(path)), opt(opt), act(act) {
    read_value();
}

void TopologyBase::read_value() {
    if (!is_file_exists(path)) {
        NM_LOG(Error) << "Config: " << path << "doesn't exist.";
        return;
    }
    Json::Value document;
    if (json_file_to_mem(path, document) < 0) {
        NM_LOG(Error) << "Parse config: " << path << " failed.";
        return;
    }
    value = nm::json_member(nm::json_member(document, "TOPOLOGY"), type);
}

int TopologyBase::setup() {
    return NM_OK;
}

std::string TopologyBase::get_type() const {
    return type;
}

std::string TopologyBase::get_conf_path() const {
    return path;
}

uint32_t TopologyBase::get_opt() const {
    return opt;
}

uint32_t TopologyBase::get_act() const {
    return act;
}

Json::Value TopologyBase::get_value() const {
    return value;
}

Vpn::Vpn(std::string type, std::string path, uint32_t opt, uint32_t act)
    : TopologyBase(std::move(type), std::move(path), opt, act),
      vpn_enable(nm::json_string_or(get_value(), "ENABLE", "FALSE") == "TRUE") {
}

int Vpn::setup() {
    NM_LOG(Debug) << "Vpn opt: " << get_opt();
    if ((get_opt() & kVpnSwitched) == 0) {
        return NM_OK;
    }
    const int ret = switch_ipsec(vpn_enable);
    if (ret == NM_OK && is_file_exists("/var/run/network/.boot_fin")) {
        reconfigure_site_info();
    }
    return ret;
}

bool Vpn::get_vpn_enable() const {
    return vpn_enable;
}

// The life cycle of an uplink's device.
#include "interfaces/uplink/UplinkInterface.h"

#include <vpppoe.h>

#include <utility>

#include "config/actions.h"
#include "config/nmconfig.h"
#include "kernel/if_utils.h"
#include "log.h"
#include "peers/bus/qos_rate.h"
#include "peers/bus/service_bus.h"
#include "result_codes.h"
#include "utils/json_text.h"

namespace {

constexpr int kQosStart = 1;
constexpr int kQosStop = 2;
constexpr int kQosRestart = 3;

}  // namespace

UplinkInterface::UplinkInterface(const UplinkKind& kind, const std::string& port, std::string path,
                                 Json::Value cfg)
    : BaseWanInterface(kind.type, port, std::move(path), nm::json_part(cfg, kind.ports, port)), kind(kind) {
    int ret = NM_OK;
    info = kind.make_info(interface, this->path, std::move(cfg), ret);
}

std::string UplinkInterface::get_ip4_type() {
    return info != nullptr ? info->get_ip4_type() : "DISABLED";
}

int UplinkInterface::del_info(uint32_t opt) {
    return info != nullptr ? info->del_info(opt) : NM_OK;
}

int UplinkInterface::setup_if(uint32_t opt) {
    NM_LOG(Debug) << "Enter";
    if (get_iface_index(interface.c_str()) == 0) {
        NM_LOG(Error) << interface << " does not exist";
        return NM_EXIT(NM_ERR_NO_IFACE);
    }
    const bool was_up = is_iface_up(interface) == 1;
    if (dev_type.empty()) {
        return NM_EXIT(NM_ERR_BAD_TYPE);
    }
    NM_LOG(Debug) << "opt=" << std::hex << opt;
    if ((opt & OPT_LINK) != 0) {
        const int ret = set_mtu();
        if (ret != NM_OK) {
            return NM_EXIT(ret);
        }
    }
    if (was_up && (opt & OPT_LINK) != 0) {
        NM_LOG(Debug) << "wait for interface up after setup MTU/Physical info";
        if (wait_for_iface_up(interface) != 0) {
            NM_LOG(Error) << "wait for interface up fail";
        }
    }
    if ((opt & OPT_EDMA) != 0) {
        (void)set_edma();  // nothing can fail there
    }
    return NM_EXIT(NM_OK);
}

int UplinkInterface::set_mtu() {
    return set_if_mtu(interface.data(), mtu);
}

bool UplinkInterface::end_session(int (*take_down)(UplinkIfaceInfo& stored)) {
    if (is_interface_pppoe_cfg_exist(interface.c_str()) != VPPPOE_SUCCESS) {
        NM_LOG(Debug) << "PPPoE config for " << interface << " does not exist.";
        return false;
    }
    NM_LOG(Debug) << "PPPoE config for " << interface;
    int ret = NM_OK;
    const std::unique_ptr<UplinkIfaceInfo> stored =
        kind.make_info(interface, kDeviceInfoPath, Json::Value(), ret);
    if (stored == nullptr) {
        NM_LOG(Error) << "Create old " << kind.info_class << " instance failed, ret=" << ret;
        return false;
    }
    // The MTU is set whatever is left of the session.
    (void)(stored->get_ip4_type() == "PPPOE" ? take_down(*stored) : stored->end_left_over_session());
    return true;
}

/// Only a device that has an id is known to the service that shapes the traffic.
void UplinkInterface::apply_qos(int operation, const char* word) {
    if (get_device_id() == 0) {
        return;
    }
    const int ret = setup_qos_rate(interface, path, operation);
    if (ret != NM_OK) {
        NM_LOG(Error) << interface << " " << word << " QoS failed, Ret: " << ret;
    }
}

int UplinkInterface::add_if(uint32_t opt) {
    NM_LOG(Debug) << "Enter";
    const int ret = setup_if(opt);
    if (set_iface_flags(interface.c_str(), IFF_NOMULTIPATH) != NM_OK) {
        NM_LOG(Error) << "set_iface_flags IFF_NOMULTIPATH failed: " << interface;
    }
    apply_qos(kQosStart, "start");
    return NM_EXIT(ret);
}

int UplinkInterface::del_if(uint32_t opt) {
    NM_LOG(Debug) << "Enter";
    if (get_iface_index(interface.c_str()) == 0) {
        NM_LOG(Warning) << interface << " ifindex = 0; skip";
    } else if (del_info(opt) != NM_OK) {
        NM_LOG(Error) << "del info failed";
    }
    apply_qos(kQosStop, "stop");
    return NM_EXIT(NM_OK);
}

int UplinkInterface::alt_if(uint32_t opt) {
    NM_LOG(Debug) << "Enter";
    const int ret = setup_if(opt);
    if ((opt & OPT_RATE) != 0) {
        apply_qos(kQosRestart, "restart");
        (void)reset_wan_monitor_bandwidth();  // logged; the port is set up all the same
    }
    return NM_EXIT(ret);
}

int UplinkInterface::reset_wan_monitor_bandwidth() {
    NM_LOG(Debug) << "Enter";
    Json::Value request;
    request["ifname"] = interface;
    request["bandwidth"] = std::to_string(tx_rate);
    std::string input = nm::write_compact_json(request);
    std::string output;
    const int ret = vservice_call("VelanWmd", "Reset_iface_bandwidth", input, output, false);
    if (ret != NM_OK) {
        NM_LOG(Error) << interface << " Reset_iface_bandwidth failed! Ret: " << ret;
    }
    return NM_EXIT(ret);
}

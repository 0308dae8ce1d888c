// The device side of a WAN port.
#include "interfaces/uplink/WanInterface.h"

#include <vpppoe.h>

#include <utility>

#include "config/actions.h"
#include "config/nmconfig.h"
#include "interfaces/common/factory.h"
#include "log.h"
#include "result_codes.h"

WanInterface::WanInterface(std::string port, std::string path, Json::Value cfg)
    : UplinkInterface(nm::uplink_kind(KIND_WAN), std::move(port), std::move(path), std::move(cfg)) {
}

void WanInterface::prepare_sessions() {
    if (get_ip4_type() == "PPPOE") {
        NM_LOG(Warning) << "PPPoE MTU is changed";
        return;
    }
    remove_left_over_pppoe();
}

/// A session of an earlier configuration may still run on a port that is not a PPPoE port any more. The
/// stored state knows how to take it down, unless the caller has stored the new one already: then what is
/// live on the port is of another type, and not to be touched.
void WanInterface::remove_left_over_pppoe() {
    if (is_interface_pppoe_cfg_exist(interface.c_str()) != 0) {
        NM_LOG(Debug) << "PPPoE config for " << interface << " does not exist.";
        return;
    }
    int ret = NM_OK;
    const std::unique_ptr<UplinkIfaceInfo> old =
        kind.make_info(interface, kDeviceInfoPath, Json::Value(), ret);
    if (old == nullptr) {
        NM_LOG(Error) << "Create old " << kind.info_class << " instance failed, ret=" << ret;
        return;
    }
    // The MTU is set whatever is left of the session.
    (void)(old->get_ip4_type() == "PPPOE" ? old->del_info(0) : old->end_left_over_session());
}

int create_WAN(WanInterface** wan, std::string port, std::string path, Json::Value cfg) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(nm::build(wan, "wan", nm::port_without_vlan(port), path, cfg));
}

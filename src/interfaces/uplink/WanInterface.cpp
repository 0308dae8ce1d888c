// The device side of a WAN port.
#include "interfaces/uplink/WanInterface.h"

#include <utility>

#include "config/actions.h"
#include "interfaces/common/factory.h"

WanInterface::WanInterface(std::string port, std::string path, Json::Value cfg)
    : UplinkInterface(nm::uplink_kind(KIND_WAN), port, std::move(path), std::move(cfg)) {
}

int WanInterface::set_mtu() {
    if (get_ip4_type() == "PPPOE") {
        NM_LOG(Warning) << "PPPoE MTU is changed";
    } else {
        (void)end_session([](UplinkIfaceInfo& stored) { return stored.del_info(0); });
    }
    return UplinkInterface::set_mtu();
}

int create_WAN(WanInterface** wan, std::string port, std::string path, Json::Value cfg) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(nm::build(wan, "wan", nm::port_without_vlan(port), path, std::move(cfg)));
}

// The device side of an RGLink.
#include "interfaces/uplink/RGLinkInterface.h"

#include <utility>

#include "config/actions.h"
#include "interfaces/common/factory.h"

RGLinkInterface::RGLinkInterface(std::string port, std::string path, Json::Value cfg)
    : UplinkInterface(nm::uplink_kind(KIND_RGLINK), port, std::move(path), std::move(cfg)) {
}

int RGLinkInterface::set_mtu() {
    if (get_ip4_type() == "PPPOE") {
        NM_LOG(Warning) << "PPPoE MTU is changed";
    }
    const bool was_ended = end_session([](UplinkIfaceInfo& stored) { return stored.disable_ipv4(0); });
    const int ret = UplinkInterface::set_mtu();
    // Its end took the configuration with it, and nobody else dials it again.
    if (was_ended && get_ip4_type() == "PPPOE" && info->setup_pppoe(OPT_LINK) != NM_OK) {
        NM_LOG(Error) << interface << " stays without its session.";
    }
    return ret;
}

int create_RGLINK(RGLinkInterface** rglink, std::string port, std::string path, Json::Value cfg) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(nm::build(rglink, "rglink", nm::port_without_vlan(port), path, std::move(cfg)));
}

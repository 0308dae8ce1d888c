// The addressing side of a private port: what it does in ways of its own.
#include "interfaces/uplink/PrivateIfaceInfo.h"

#include <utility>

#include "config/actions.h"
#include "interfaces/common/factory.h"
#include "interfaces/uplink/PrivateInterface.h"
#include "interfaces/uplink/tunnel_edit.h"

PrivateIfaceInfo::PrivateIfaceInfo(std::string ifname, std::string path, Json::Value cfg)
    : UplinkIfaceInfo(nm::uplink_kind(KIND_PRIVATE), std::move(ifname), std::move(path), std::move(cfg)) {
}

void PrivateIfaceInfo::register_uplink(bool comes) {
    (void)setup_hmgr(comes ? 1 : 0);  // logged there; the uplink comes up without
}

int PrivateIfaceInfo::setup_hmgr(int on) {
    const std::unique_ptr<UplinkInterface> device = get_interface();
    auto* const circuit = static_cast<PrivateInterface*>(device.get());
    if (circuit == nullptr) {
        NM_LOG(Error) << "Get PrivateInterface failed.";
        return NM_ERR_NO_IFACE;
    }
    Json::Value request;
    request["portname"] = portname;
    Json::Value& info = request["info"];
    info["IFNAME"] = run_ifname;
    info["RX_RATE"] = static_cast<Json::UInt64>(circuit->get_rx_rate());
    info["TX_RATE"] = static_cast<Json::UInt64>(circuit->get_tx_rate());
    info["IP4_ADDR"] = ip4_addr;
    info["IP4_GW"] = ip4_gw;
    info["IP4_PREFIX"] = ip4_prefix;
    info["PRIVATE_GROUP_ID"] = circuit->get_pgid();
    return tell_health_manager(on != 0 ? "AddPrivate" : "RemovePrivate", request);
}

int PrivateIfaceInfo::setup_private_monitor(int on) {
    return setup_wan_monitor(on, run_ifname, ip4_gw);
}

int PrivateIfaceInfo::setup_plmd(int on) {
    return setup_link_daemon(on);
}

int create_PRIVATE_INFO(PrivateIfaceInfo** info, std::string ifname, std::string path, Json::Value cfg) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(nm::build(info, "info", ifname, path, std::move(cfg)));
}

int edit_private_tunnels(int op) {
    return nm::edit_tunnels_of(nm::uplink_kind(KIND_PRIVATE), op);
}

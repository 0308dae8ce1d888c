// The addressing side of a WAN port: what it does in ways of its own.
#include "interfaces/uplink/WanIfaceInfo.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include "config/actions.h"
#include "interfaces/common/factory.h"
#include "interfaces/uplink/UplinkInterface.h"
#include "interfaces/uplink/tunnel_edit.h"
#include "kernel/link_state.h"
#include "log.h"
#include "peers/bus/service_bus.h"
#include "result_codes.h"
#include "utils/json_text.h"

namespace {

std::string lower_case(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return tolower(c); });
    return text;
}

}  // namespace

WanIfaceInfo::WanIfaceInfo(std::string ifname, std::string path, Json::Value cfg)
    : UplinkIfaceInfo(nm::uplink_kind(KIND_WAN), std::move(ifname), std::move(path), std::move(cfg)) {
    ip6_type = ip6_type.empty() ? "DISABLED" : ip6_type;
}

void WanIfaceInfo::register_uplink(bool comes) {
    Json::Value request;
    request["id"] = id_;
    if (!comes) {
        (void)tell_health_manager("RemoveWan", request);
        return;
    }
    const std::unique_ptr<UplinkInterface> device = get_interface();
    if (device == nullptr) {
        return;
    }
    Json::Value& info = request["info"];
    info["ifname"] = run_ifname;
    info["ip4_type"] = lower_case(ip4_type);
    info["ip6_type"] = lower_case(ip6_type);
    info["rx_rate"] = static_cast<Json::UInt64>(device->get_rx_rate());
    info["tx_rate"] = static_cast<Json::UInt64>(device->get_tx_rate());
    info["iface_type"] = iface_type;
    (void)tell_health_manager("AddWan", request);
}

int WanIfaceInfo::setup_tun6(int mode) {
    NM_LOG(Debug) << "Enter";
    bool has_tunnel = false;
    const int ret = request_tunnel(mode, "Setup_TUN6", "'s Tunnnel6.", has_tunnel);
    if (ret == NM_OK && has_tunnel) {
        inspect_tunnel(mode, "ip6tun");
    }
    return NM_EXIT(ret);
}

int WanIfaceInfo::setup_ipsec6(int mode, std::string address) {
    NM_LOG(Debug) << (mode == 1 ? "Add " : "Del ") << ifname << "'s ipsec6 configuration.";
    if (mode == 1) {
        NM_LOG(Debug) << ifname << "'s ipv6 address [" << address << "].";
    }
    return edit_local_site(mode, "ipsec.edit_local_site_ip6", "ip6", address);
}

int create_WAN_INFO(WanIfaceInfo** info, std::string ifname, std::string path, Json::Value cfg) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(nm::build(info, "info", ifname, path, std::move(cfg)));
}

int edit_tunnels(int op) {
    return nm::edit_tunnels_of(nm::uplink_kind(KIND_WAN), op);
}

int check_iface_link_up(WanIfaceInfo* info, unsigned int act) {
    if ((act & OPT_LINK_TOLD) == 0) {
        if (info == nullptr) {
            NM_LOG(Error) << "info is NULL";
            return 0;
        }
        return is_interface_link_up(info->get_ifname(), info->get_dev_type());
    }
    if ((act & OPT_LINK_TOLD_UP) == 0) {
        NM_LOG(Debug) << "Interface is down";
        return 0;
    }
    return 1;
}

int WanIfaceInfo::setup_mlmd(int mode) {
    return setup_link_daemon(mode);
}

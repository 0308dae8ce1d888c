// The rows of the kinds of uplinks.
#include "interfaces/uplink/UplinkKind.h"

#include <algorithm>
#include <array>
#include <utility>

#include "config/actions.h"
#include "interfaces/uplink/PrivateIfaceInfo.h"
#include "interfaces/uplink/PrivateInterface.h"
#include "interfaces/uplink/RGLinkIfaceInfo.h"
#include "interfaces/uplink/RGLinkInterface.h"
#include "interfaces/uplink/WanIfaceInfo.h"
#include "interfaces/uplink/WanInterface.h"

namespace {

bool contains(const std::vector<std::string>& texts, const std::string& text) {
    return std::find(texts.begin(), texts.end(), text) != texts.end();
}

template <class Side, class T, int (*create)(T**, std::string, std::string, Json::Value)>
std::unique_ptr<Side> make(const std::string& name, const std::string& path, Json::Value cfg, int& ret) {
    T* side = nullptr;
    ret = create(&side, name, path, std::move(cfg));
    return std::unique_ptr<Side>(side);
}

UplinkKind make_wan() {
    UplinkKind kind{};
    kind.type = KIND_WAN;
    kind.ports = "WAN_PORT";
    kind.infos = "WAN_IFACE_INFO";
    kind.ip4_mask = OPT_IP4;
    kind.ip6_mask = OPT_IP6;
    kind.pppoe_mask = OPT_LINK;
    kind.device_class = "WanInterface";
    kind.info_class = "WanIfaceInfo";
    kind.add_failed = "Add info failed, interface: ";
    kind.mark = 1;
    kind.dials_by_mask = false;
    kind.dial_failed = "do nm_add_pppoe_and_run failed! retval: ";
    kind.tunnel_method = "Setup_TUN";
    kind.monitor_type = nullptr;
    kind.link_daemon = "mlmd";
    kind.daemon_log_is_brief = true;
    kind.ip4_types = {"DHCP", "STATIC", "PPPOE", "DISABLED"};
    kind.tunnel_types = {"PPPOE", "DHCP", "STATIC"};
    kind.make_device = make<UplinkInterface, WanInterface, create_WAN>;
    kind.make_info = make<UplinkIfaceInfo, WanIfaceInfo, create_WAN_INFO>;
    return kind;
}

UplinkKind make_private() {
    UplinkKind kind = make_wan();
    kind.type = KIND_PRIVATE;
    kind.ports = "PRIVATE_PORT";
    kind.infos = "PRIVATE_IFACE_INFO";
    kind.ip6_mask = 0;
    kind.pppoe_mask = 0;
    kind.device_class = "PrivateInterface";
    kind.info_class = "PrivateIfaceInfo";
    kind.mark = 0;
    kind.tunnel_method = "Setup_PRIVATE";
    kind.monitor_type = "PRIVATE";
    kind.link_daemon = "plmd";
    kind.daemon_log_is_brief = false;
    kind.ip4_types = {"STATIC", "DISABLED"};
    kind.tunnel_types = {"STATIC"};
    kind.make_device = make<UplinkInterface, PrivateInterface, create_PRIVATE_ITF>;
    kind.make_info = make<UplinkIfaceInfo, PrivateIfaceInfo, create_PRIVATE_INFO>;
    return kind;
}

UplinkKind make_rglink() {
    UplinkKind kind = make_wan();
    kind.type = KIND_RGLINK;
    kind.ports = "RGLINK_PORT";
    kind.infos = "RGLINK_IFACE_INFO";
    kind.ip6_mask = 0;
    kind.device_class = "RGLinkInterface";
    kind.info_class = "RGLinkIfaceInfo";
    kind.add_failed = "Setup info failed, interface: ";
    kind.mark = 0;
    kind.dials_by_mask = true;
    kind.dial_failed = "retval is not VPPPOE_SUCCESS! retval: ";
    kind.tunnel_method = "Setup_RGLINK";
    kind.link_daemon = "dlmd";
    kind.daemon_log_is_brief = false;
    kind.make_device = make<UplinkInterface, RGLinkInterface, create_RGLINK>;
    kind.make_info = make<UplinkIfaceInfo, RGLinkIfaceInfo, create_RGLINK_INFO>;
    return kind;
}

}  // namespace

bool UplinkKind::takes(const std::string& ip4_type) const {
    return contains(ip4_types, ip4_type);
}

bool UplinkKind::has_tunnel(const std::string& ip4_type) const {
    return contains(tunnel_types, ip4_type);
}

namespace nm {

const UplinkKind* find_uplink_kind(int type) {
    static const std::array kinds{make_wan(), make_private(), make_rglink()};
    const auto* const row = std::find_if(kinds.begin(), kinds.end(),
                                         [type](const UplinkKind& kind) { return kind.type == type; });
    return row != kinds.end() ? row : nullptr;
}

const UplinkKind& uplink_kind(int type) {
    return *find_uplink_kind(type);
}

}  // namespace nm

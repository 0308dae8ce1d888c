// The life cycle of an uplink's addressing.
#include "interfaces/uplink/UplinkIfaceInfo.h"

#include <utility>

#include "config/actions.h"
#include "config/nmconfig.h"
#include "interfaces/uplink/UplinkInterface.h"
#include "log.h"
#include "peers/bus/service_bus.h"
#include "result_codes.h"
#include "services/dns/name_servers.h"
#include "utils/json_text.h"

namespace {

constexpr unsigned char kIp4 = 2;

/// Modes of disable_ipv4() and disable_ipv6(): whether a dynamic type follows.
constexpr int kNothingFollows = 0;
constexpr int kDynamicFollows = 2;

}  // namespace

UplinkIfaceInfo::UplinkIfaceInfo(const UplinkKind& kind, std::string ifname, std::string path,
                                 Json::Value cfg)
    : BaseWanIfaceInfo(kind.type, std::move(ifname), std::move(path), std::move(cfg)), kind(kind) {
}

bool UplinkIfaceInfo::has_session() const {
    return ip4_type == "PPPOE" && kind.takes(ip4_type);
}

/// A session is dialled whatever changed: its far end gives all that the mask could name.
int UplinkIfaceInfo::bring_up(uint32_t opt) {
    return has_session() ? setup_pppoe_service(1) : setup_info(opt);
}

int UplinkIfaceInfo::tell_health_manager(const char* method, const Json::Value& request) {
    std::string input = nm::write_compact_json(request);
    std::string output;
    return vservice_call("nm-hmgr", method, input, output, false);
}

int UplinkIfaceInfo::disable_ipv6(int) {
    return NM_OK;
}

int UplinkIfaceInfo::setup_session_ipv6(int) {
    return NM_OK;
}

int UplinkIfaceInfo::setup_tun6(int) {
    return NM_OK;
}

int UplinkIfaceInfo::add_info(uint32_t opt) {
    NM_LOG(Debug) << "Enter";
    register_uplink(true);
    const int ret = kind.dials_by_mask ? setup_info(opt) : bring_up(opt);
    if (ret != NM_OK) {
        NM_LOG(Error) << kind.add_failed << ifname;
    }
    return NM_EXIT(ret);
}

int UplinkIfaceInfo::del_info(uint32_t) {
    NM_LOG(Debug) << "Enter";
    // The object was built before its lock was got, and a lease or session may have come in between.
    read_runtime_state();
    if (disable_ipv6(kNothingFollows) != NM_OK) {
        NM_LOG(Error) << "Disable ipv6 failed, interface: " << ifname;
    }
    const int ret = disable_ipv4(kNothingFollows);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Disable ipv4 failed, interface: " << ifname;
    }
    register_uplink(false);
    return NM_EXIT(ret);
}

int UplinkIfaceInfo::alt_info(uint32_t opt) {
    NM_LOG(Debug) << "Enter";
    int ret = NM_OK;
    const std::unique_ptr<UplinkIfaceInfo> stored =
        kind.make_info(ifname, kDeviceInfoPath, Json::Value(), ret);
    if (stored == nullptr) {
        NM_LOG(Error) << ifname << " does not exist in " << kDeviceInfoPath;
        return NM_EXIT(ret);
    }
    take_stored_down(*stored, opt);
    return NM_EXIT(bring_up(opt));
}

/// What fails here is logged where it fails: the new state is set up all the same.
void UplinkIfaceInfo::take_stored_down(UplinkIfaceInfo& stored, uint32_t opt) {
    if ((opt & OPT_LINK) != 0 && (has_session() || stored.has_session())) {
        (void)stored.del_info(opt);
        return;
    }
    if ((opt & OPT_IP4) != 0) {
        (void)stored.disable_ipv4(ip4_type == "DHCP" ? kDynamicFollows : kNothingFollows);
    }
    if ((opt & OPT_IP6) != 0) {
        (void)stored.disable_ipv6(ip6_type == "STATIC" ? kNothingFollows : kDynamicFollows);
    }
}

std::unique_ptr<UplinkInterface> UplinkIfaceInfo::get_interface() {
    NM_LOG(Debug) << "portname: " << portname << "; conf_path: " << path;
    int ret = NM_OK;
    Json::Value own = nm::json_part(cfg, kind.ports, portname);
    own[kind.infos] = nm::json_part(cfg, kind.infos, ifname)[kind.infos];
    std::unique_ptr<UplinkInterface> device = kind.make_device(portname, path, std::move(own), ret);
    if (device == nullptr) {
        NM_LOG(Error) << ifname << " creates " << kind.device_class << " instance failed, ret=" << ret;
    }
    return device;
}

int UplinkIfaceInfo::get_interface_prio(uint32_t& prio) {
    prio = 1;
    const std::unique_ptr<UplinkInterface> device = get_interface();
    if (device == nullptr) {
        NM_LOG(Error) << "Failed to do get_interface!";
        return NM_ERR_NO_IFACE;
    }
    prio = static_cast<uint32_t>(device->get_prio());
    return NM_OK;
}

int UplinkIfaceInfo::add_dns4() {
    return insert_dns_server(ip4_dns, run_ifname);
}

int UplinkIfaceInfo::del_dns4() {
    return remove_dns_server(run_ifname, kIp4);
}

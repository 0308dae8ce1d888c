// The addressing side of an RGLink: what it does in ways of its own.
#include "interfaces/uplink/RGLinkIfaceInfo.h"

#include <vpppoe.h>

#include <memory>
#include <utility>

#include "config/actions.h"
#include "config/nmconfig.h"
#include "config/port_lookup.h"
#include "interfaces/common/factory.h"
#include "interfaces/uplink/session_code.h"
#include "interfaces/uplink/tunnel_edit.h"
#include "utils/ip_text.h"

namespace {

struct Document {
    std::string path;
    Json::Value root;
};

int update_one(std::string ifname, void* argument) {
    const Document& document = *static_cast<const Document*>(argument);
    RGLinkIfaceInfo* created = nullptr;
    const int ret = create_RGLINK_INFO(&created, ifname, document.path, document.root);
    const std::unique_ptr<RGLinkIfaceInfo> info(created);
    if (info == nullptr) {
        NM_LOG(Error) << "Create RGLinkIfaceInfo instance failed, ret=" << ret;
        return ret;
    }
    return info->update_ip_info(1);
}

}  // namespace

RGLinkIfaceInfo::RGLinkIfaceInfo(std::string ifname, std::string path, Json::Value cfg)
    : UplinkIfaceInfo(nm::uplink_kind(KIND_RGLINK), std::move(ifname), std::move(path), std::move(cfg)) {
}

/// It is registered by its port alone: addresses follow by update_ip_info().
void RGLinkIfaceInfo::register_uplink(bool comes) {
    Json::Value request;
    request["portname"] = portname;
    (void)tell_health_manager(comes ? "AddDomainLink" : "RemoveDomainLink", request);  // logged there
}

int RGLinkIfaceInfo::disable_ipv4(int mode) {
    NM_LOG(Info) << "ifname [" << ifname << "]; ip4_type [" << ip4_type << "]";
    if (ip4_type != "PPPOE") {
        return NM_EXIT(disable_ip(mode));
    }
    const int ret = remove_hosts();
    if (ifindex == 0) {
        NM_LOG(Error) << run_ifname << " doesn't exist.";
    }
    const int stopped = disable_session();
    if (stopped != NM_OK) {
        NM_LOG(Error) << "stop PPPoE failed; retval = " << stopped;
    }
    return NM_EXIT(ret != NM_OK ? ret : stopped);
}

int RGLinkIfaceInfo::setup_ipv6(uint32_t) {
    NM_LOG(Debug) << "Not support yet!";
    return NM_OK;
}

int RGLinkIfaceInfo::start_pppoe() {
    if (is_interface_pppoe_cfg_exist(ifname.c_str()) != VPPPOE_SUCCESS) {
        return UplinkIfaceInfo::start_pppoe();
    }
    NM_LOG(Debug) << ifname << " PPPoE cfg has existed; do start_interface_pppoe.";
    const int retval = start_interface_pppoe(ifname.c_str());
    if (retval != VPPPOE_SUCCESS) {
        NM_LOG(Error) << ifname << " start_interface_pppoe failed. retval: " << retval;
    }
    return nm::session_code(retval);
}

/// Of a lease that has just come its client may not have written down anything yet.
void RGLinkIfaceInfo::tell_peers(const std::string& address, int prefix) {
    UplinkIfaceInfo::tell_peers(address, prefix);
    (void)report_address(address, prefix);  // logged there; the link is up all the same
}

void RGLinkIfaceInfo::forget_at_peers() {
    UplinkIfaceInfo::forget_at_peers();
    if (ip4_type != "DISABLED") {
        (void)update_ip_info(0);  // as above
    }
}

int RGLinkIfaceInfo::setup_dlmd(int on) {
    return setup_link_daemon(on);
}

int RGLinkIfaceInfo::update_ip_info(int on) {
    NM_LOG(Debug) << "Enter";
    if (ip4_type == "DISABLED" || !kind.takes(ip4_type)) {
        NM_LOG(Error) << "bad IPv4_TYPE " << ip4_type;
        return NM_EXIT(NM_ERR_BAD_TYPE);
    }
    std::string address;
    int prefix = 0;
    const int ret = on == 1 ? read_address(address, prefix) : NM_OK;
    return NM_EXIT(ret != NM_OK ? ret : report_address(address, prefix));
}

int RGLinkIfaceInfo::report_address(const std::string& address, int prefix) {
    if (prefix < 0) {
        NM_LOG(Error) << ifname << " has no netmask to report.";
        return prefix;
    }
    Json::Value request;
    request["portname"] = portname;
    request["ip4_addr"] = address;
    request["ip4_prefix"] = prefix;
    const int ret = tell_health_manager("UpdateRGLinkInfo", request);
    if (ret != NM_OK) {
        NM_LOG(Error) << "UpdateRGLinkInfo in nm-hmgr failed! ret: " << ret;
    }
    return ret;
}

int RGLinkIfaceInfo::read_address(std::string& address, int& prefix) {
    if (ip4_type == "STATIC") {
        address = ip4_addr;
        prefix = ip4_prefix;
        return NM_OK;
    }
    const bool is_session = ip4_type == "PPPOE";
    DHCP_INFO lease{};
    const int ret = is_session ? cast_ppp_cfg_into_dhcp_info(ifname, lease)
                               : get_interface_dhcp_info(ifname.data(), lease);
    if (ret != NM_OK) {
        NM_LOG(Error) << ifname << " failed to get " << (is_session ? "PPPoE" : "DHCP") << " info!";
        return ret;
    }
    address = lease.ip;
    prefix = mask_to_prefix(lease.netmask);
    return NM_OK;
}

int create_RGLINK_INFO(RGLinkIfaceInfo** info, std::string ifname, std::string path, Json::Value cfg) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(nm::build(info, "info", ifname, path, std::move(cfg)));
}

int edit_rglink_tunnels(int op) {
    return nm::edit_tunnels_of(nm::uplink_kind(KIND_RGLINK), op);
}

int update_rglink_info(std::string path) {
    Document document{path, {}};
    const int ret = json_file_to_mem(path, document.root);
    return ret < 0
               ? ret
               : json_key_foreach_value_do(document.root, "RGLINK_IFACE_INFO", false, update_one, &document);
}

// The tunnels of all uplinks of one kind at once.
#include "interfaces/uplink/tunnel_edit.h"

#include <vpppoe.h>

#include "config/nmconfig.h"
#include "config/port_lookup.h"
#include "interfaces/uplink/UplinkIfaceInfo.h"
#include "interfaces/uplink/session_code.h"
#include "log.h"
#include "result_codes.h"

namespace {

constexpr int kSetUp = 0x1;
constexpr int kTearDown = 0x2;

struct TunnelEdit {
    const UplinkKind& kind;
    int op;
    const Json::Value& document;
};

/// A tunnel hangs on an address. A port that has no lease at present may still have the tunnel of an earlier
/// one to tear down; one whose session cannot be asked for is left alone.
int check_address(UplinkIfaceInfo& info) {
    const std::string ifname = info.get_ifname();
    if (info.get_ip4_type() == "DHCP") {
        DHCP_INFO lease{};
        if (info.get_dhcp_info(lease) != NM_OK) {
            NM_LOG(Error) << ifname << " get dhcp info failed.";
        }
        return NM_OK;
    }
    if (info.get_ip4_type() != "PPPOE") {
        return NM_OK;
    }
    pppoe_status session{};
    const int retval = get_pppoe_status(ifname.c_str(), &session);
    if (retval != VPPPOE_SUCCESS) {
        NM_LOG(Error) << ifname << " get pppoe status failed.";
    }
    return nm::session_code(retval);
}

int visit(std::string ifname, void* argument) {
    const TunnelEdit& edit = *static_cast<const TunnelEdit*>(argument);
    int ret = NM_OK;
    const std::unique_ptr<UplinkIfaceInfo> info =
        edit.kind.make_info(ifname, kDeviceInfoPath, edit.document, ret);
    if (info == nullptr) {
        NM_LOG(Error) << "Create " << edit.kind.info_class << " instance failed, ret=" << ret;
        return ret;
    }
    NM_LOG(Debug) << "IFNAME: " << ifname << ", Type: " << info->get_ip4_type();
    ret = check_address(*info);
    if (ret != NM_OK) {
        return ret;
    }
    // The overlay's own failures are logged there: one port's tunnel does not depend on another's.
    if ((edit.op & kTearDown) != 0) {
        (void)info->setup_tun(0);
        (void)info->setup_tun6(0);
    }
    if ((edit.op & kSetUp) != 0) {
        (void)info->setup_tun(1);
        (void)info->setup_tun6(1);
    }
    return NM_OK;
}

}  // namespace

namespace nm {

int edit_tunnels_of(const UplinkKind& kind, int op) {
    NM_LOG(Debug) << "Enter";
    Json::Value document;
    const int ret = json_file_to_mem(kDeviceInfoPath, document);
    if (ret < 0) {
        return NM_EXIT(ret);
    }
    TunnelEdit edit{kind, op, document};
    return NM_EXIT(json_key_foreach_value_do(document, kind.infos, false, visit, &edit));
}

}  // namespace nm

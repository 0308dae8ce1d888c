// The PPPoE session of an uplink: dialling it, stopping it, and what a session leaves behind.
#include <sys/socket.h>
#include <vpppoe.h>

#include "config/port_names.h"
#include "interfaces/uplink/UplinkIfaceInfo.h"
#include "interfaces/uplink/session_code.h"
#include "interfaces/uplink/session_remains.h"
#include "kernel/uplink_routing.h"
#include "log.h"
#include "peers/logs/device_log.h"
#include "result_codes.h"
#include "services/dns/hosts.h"
#include "services/dns/name_servers.h"
#include "utils/process.h"
#include "utils/shell_text.h"

namespace {

/// The device log's event for a dialling that begins.
constexpr uint32_t kDialEvent = 255;

}  // namespace

int UplinkIfaceInfo::setup_pppoe(uint32_t) {
    if (username.empty()) {
        NM_LOG(Error) << ifname << " username is empty; return.";
        return NM_ERR_EMPTY;
    }
    return setup_pppoe_service(1);
}

int UplinkIfaceInfo::setup_pppoe_service(int mode) {
    NM_LOG(Debug) << "Enter";
    if (mode == 1) {
        return NM_EXIT(start_pppoe());
    }
    if (ip4_type != "PPPOE") {
        NM_LOG(Error) << "Bad ipv4 type! ip4_type: " << ip4_type;
        return NM_EXIT(NM_ERR_BAD_TYPE);
    }
    if (is_interface_pppoe_cfg_exist(ifname.c_str()) != VPPPOE_SUCCESS) {
        NM_LOG(Debug) << ifname << "'s PPPoE cfg is not existed; skip stop service.";
        return NM_EXIT(NM_OK);
    }
    return NM_EXIT(stop_pppoe());
}

int UplinkIfaceInfo::start_pppoe() {
    NM_LOG(Debug) << ifname << ": do nm_add_pppoe_and_run.";
    pppoe_dial_log(portname, kDialEvent);
    const int with_ipv6 = ip6_type == "PPPOEV6" ? 1 : 0;
    const int retval = nm_add_pppoe_and_run(ifname.c_str(), username.c_str(), password.c_str(), with_ipv6);
    if (retval != VPPPOE_SUCCESS) {
        NM_LOG(Error) << kind.dial_failed << retval;
    }
    return nm::session_code(retval);
}

int UplinkIfaceInfo::stop_pppoe() {
    int ret = end_session();
    const int without_ipv6 = setup_session_ipv6(0);
    ret = ret != NM_OK ? ret : without_ipv6;
    if (ifindex == 0) {
        NM_LOG(Debug) << "Missing ifindex. Skip delete sourceroute.";
    } else if (nm::delete_session_routerule(run_ifname, ifindex, AF_INET) != NM_OK) {
        NM_LOG(Error) << "Delete source route or rule fail. Interface: " << run_ifname;
    }
    const int removed = remove_session_config();
    return ret != NM_OK ? ret : removed;
}

int UplinkIfaceInfo::end_session() {
    if (write_stop_flag() != NM_OK) {
        NM_LOG(Error) << "Failed to echo STOP_FLAG to PPPoE env!";
    }
    const int retval = stop_interface_pppoe(ifname.c_str());
    const int ret =
        retval == VPPPOE_ERR_NO_SESSION ? NM_OK : nm::session_code(retval);  // it may be down already
    if (ret != NM_OK) {
        NM_LOG(Error) << "Failed to stop PPPoE on " << ifname;
    }
    return ret;
}

int UplinkIfaceInfo::remove_session_config() {
    const std::string session = nm::ppp_ifname(ifname);
    if (del_hosts(session, AF_INET) != NM_OK) {
        NM_LOG(Error) << "Delete hosts failed, interface: " << session;
    }
    const int ret = nm::session_code(del_interface_pppoe_cfg(ifname.c_str()));
    if (ret != NM_OK) {
        NM_LOG(Error) << "Failed to remove the PPPoE cfg of " << ifname;
    }
    return ret;
}

/// The overlay's other services know the port under its own name, whatever its type, so they are left alone.
int UplinkIfaceInfo::end_left_over_session() {
    if (is_interface_pppoe_cfg_exist(ifname.c_str()) != VPPPOE_SUCCESS) {
        return NM_OK;
    }
    const std::string session = nm::ppp_ifname(ifname);
    NM_LOG(Debug) << "End the session that is left over. Interface: " << session;
    pppoe_runtime_cfg running{};
    (void)get_pppoe_runtime_cfg(ifname.c_str(), &running);  // zeroed where none runs
    const int ret = end_session();
    const int removed = remove_session_config();
    (void)remove_dns_server(session, AF_INET);  // logged there, as all of this
    (void)setup_wan_monitor(0, session, "");
    inspect_traffic(0, session);
    nm::clear_session_remains(ifname, running.ip4_addr, running.ifindex);
    return ret != NM_OK ? ret : removed;
}

/// Tells the dialler that the session ends on purpose and is not to be dialled again.
int UplinkIfaceInfo::write_stop_flag() {
    const std::optional<std::string> file = nm::shell_word("/etc/vpppoe/env/" + ifname + ".env");
    if (!file || ifname.find('/') != std::string::npos) {
        NM_LOG(Error) << "Bad interface name: " << ifname;
        return NM_ERR_BAD_FORMAT;
    }
    return system_cmd(("echo 'STOP_FLAG=\"1\"' >> " + *file).c_str());
}

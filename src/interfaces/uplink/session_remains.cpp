// What a PPPoE session may leave behind: members of sets, and table and rules that the port's other types
// share.
#include "interfaces/uplink/session_remains.h"

#include <sys/socket.h>
#include <vpppoe.h>

#include <algorithm>
#include <vector>

#include "config/port_names.h"
#include "kernel/ipset.h"
#include "kernel/link_state.h"
#include "kernel/uplink_routing.h"
#include "result_codes.h"
#include "services/dhcpcd/nm_dhcpcd.h"
#include "services/leases/ipv6_record.h"
#include "utils/json_text.h"
#include "utils/local_addresses.h"

namespace {

bool is_on_a_device(const std::string& ip) {
    const std::vector<std::string> addresses = listAddresses("", AF_INET, false);
    return std::find(addresses.begin(), addresses.end(), ip) != addresses.end();
}

bool has_address(const std::string& ifname, unsigned short family) {
    return !listAddresses(ifname.c_str(), family, false).empty();
}

/// Whether table and rules can be those of the session alone. On a switch port they belong to the port, and
/// to all of its VLAN devices.
bool is_table_free(const std::string& ifname, const std::string& session, int ifindex,
                   unsigned short family) {
    const std::string owner = get_pure_ifname(session);
    return owner == session ? ifindex > 0 : !has_address(ifname, family) && !has_address(owner, family);
}

/// Failures are logged where they happen, here and below: what is left over keeps nothing else from going.
void clear_sets(const std::string& session, const std::string& ip) {
    (void)edit_ipset("del", "WANIFSET", ip + "," + session);
    if (!is_on_a_device(ip)) {
        (void)edit_ipset("del", "localip", ip);
    }
}

/// A port of another type has a record of its own, or none.
void clear_client(const std::string& ifname, const std::string& session) {
    Json::Value record;
    if (nm::read_ipv6_record(ifname, record) != NM_OK ||
        nm::json_string_or(record, "type", "") != "PPPOEV6") {
        return;
    }
    (void)dhcpcd_iface_unset(session);
    (void)nm::remove_ipv6_record(ifname);
    (void)dhcpcd_iface_exit(session);
    if (!nm::address_in_force(record).empty()) {
        (void)edit_ip6_ipset("del", "ip6_localip", nm::address_in_force(record));
    }
}

}  // namespace

void nm::clear_session_remains(const std::string& ifname, const std::string& ip, int ifindex) {
    const std::string session = ppp_ifname(ifname);
    pppoe_runtime_cfg running{};
    const bool is_running = get_pppoe_runtime_cfg(ifname.c_str(), &running) == VPPPOE_SUCCESS;
    if (!ip.empty() && !(is_running && ip == running.ip4_addr)) {
        clear_sets(session, ip);
    }
    if (is_running) {
        return;
    }
    clear_client(ifname, session);
    for (const unsigned char family : {AF_INET, AF_INET6}) {
        if (is_table_free(ifname, session, ifindex, family)) {
            (void)delete_session_routerule(session, ifindex, family);
        }
    }
}

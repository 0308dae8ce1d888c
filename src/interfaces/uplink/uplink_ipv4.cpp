// The IPv4 side of an uplink: static addresses, the client for dynamic ones, and the events that it sends.
#include <arpa/inet.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include "interfaces/uplink/UplinkIfaceInfo.h"
#include "kernel/address.h"
#include "kernel/ipset.h"
#include "kernel/link.h"
#include "kernel/uplink_routing.h"
#include "log.h"
#include "peers/logs/event_log.h"
#include "peers/unix/peer_commands.h"
#include "result_codes.h"
#include "services/dns/hosts.h"
#include "services/leases/dhcp_client.h"
#include "utils/ip_text.h"
#include "utils/units.h"

namespace {

constexpr int kWholeAddress = 32;

/// Keeps the first failure of several steps.
void keep_first(int& first, int ret) {
    first = first == NM_OK ? ret : first;
}

}  // namespace

int UplinkIfaceInfo::setup_ipv4(uint32_t opt) {
    NM_LOG(Trace) << "Interface : " << ifname << " , ip4_type: " << ip4_type;
    if (!kind.takes(ip4_type)) {
        NM_LOG(Error) << "No such ip4_type: " << ip4_type;
        return NM_ERR_BAD_TYPE;
    }
    if (ip4_type == "DISABLED") {
        NM_LOG(Debug) << "ip4_type is DISABLED, do nothing.";
        return NM_OK;
    }
    if (ip4_type == "PPPOE") {
        return setup_ipv4_session(opt);
    }
    const bool is_static = ip4_type == "STATIC";
    const int ret = is_static ? setup_ipv4_static() : setup_ipv4_dhcp(1);
    if (ret != NM_OK) {
        NM_LOG(Error) << (is_static ? "Set ipv4 STATIC" : "Enable ipv4 DHCP")
                      << " fail. Interface : " << ifname;
        return ret;
    }
    if (is_static) {
        (void)add_hosts(ip4_addr, ifname);  // the address is set; hosts.cpp logs its failures
    }
    return NM_OK;
}

int UplinkIfaceInfo::setup_ipv4_session(uint32_t opt) {
    if (kind.dials_by_mask) {
        return setup_pppoe(opt);
    }
    NM_LOG(Debug) << "Skip setup PPPoE.";
    return NM_OK;
}

int UplinkIfaceInfo::setup_ipv4_dhcp(int mode) {
    if (mode == 1) {
        NM_LOG(Debug) << "Enable dhcp";
        if (start_ipv4_dhcp(ifname, path) != NM_OK) {
            NM_LOG(Error) << "Enable dhclient fail. Interface: " << ifname;
            return NM_ERR_SERVICE;
        }
        return NM_OK;
    }
    NM_LOG(Debug) << "Disable dhcp";
    const int ret = kill_ipv4_dhcp(ifname, mode);
    if (ret != NM_OK) {
        NM_LOG(Error) << "kill ipv4 dhcp funtion fail. Interface : " << ifname;
    }
    return ret;
}

int UplinkIfaceInfo::setup_ipv4_static() {
    NM_LOG(Debug) << "Enter";
    const int ret = write_static_address();
    if (ret != NM_OK) {
        return NM_EXIT(ret);
    }
    if (set_iface_flags(ifname.c_str(), IFF_UP) != NM_OK) {
        NM_LOG(Error) << "Set interface up failed. Interface: " << ifname;
    }
    (void)setup_ipset("add", ip4_addr);
    const int routed = write_static_routes();
    set_up_overlays(1, ip4_addr, ip4_gw);
    tell_peers(ip4_addr, ip4_prefix);
    (void)add_dns4();  // logged there; names are not part of the address
    return NM_EXIT(routed);
}

int UplinkIfaceInfo::write_static_address() {
    if (!nm::is_device_address({inet_addr(ip4_addr.c_str())})) {
        NM_LOG(Error) << "Bad IP address: " << ip4_addr;
        return NM_ERR_BAD_IP;
    }
    if (ip4_prefix < 1 || ip4_prefix > kWholeAddress) {
        NM_LOG(Error) << "Bad prefix.";
        return NM_ERR_BAD_IP;
    }
    if (ifindex == 0) {
        NM_LOG(Error) << "No such Iface: " << ifname;
        return NM_ERR_NO_IFACE;
    }
    std::string address = ip4_addr;
    if (ip4_prefix < kWholeAddress) {
        address += "/" + std::to_string(ip4_prefix);
    }
    NM_LOG(Debug) << "Set ipv4 address. Interface: " << ifname << ", Address: " << address;
    const int ret = set_ipv4_addr(static_cast<unsigned int>(ifindex), address);
    if (ret != NM_OK) {
        NM_LOG(Error) << "set ipv4 address failed. Interface: " << ifname;
    }
    return ret;
}

/// The old routes and rules go first: those of another address would stay beside the new ones.
int UplinkIfaceInfo::write_static_routes() {
    const auto index = static_cast<unsigned int>(ifindex);
    if (is_routed4(ip4_addr.c_str(), ip4_prefix, ip4_gw.c_str())) {
        NM_LOG(Debug) << "Routes and rules are in force. Interface : " << ifname;
        return NM_OK;
    }
    NM_LOG(Debug) << "Delete ipv4 source route.  Interface : " << ifname;
    if (set_ip4_route(index, nullptr, 0, nullptr, RTM_DELROUTE) != NM_OK) {
        NM_LOG(Error) << "Delete ipv4 source route fail. Interface : " << ifname;
    }
    if (set_ip4_rule(index, nullptr, RTM_DELRULE, kind.mark) != NM_OK) {
        NM_LOG(Error) << "Delete ipv4 rule fail. Interface : " << ifname;
    }
    NM_LOG(Debug) << "Setup ipv4 source route and rule.";
    int ret = set_ip4_rule(index, ip4_addr.c_str(), RTM_NEWRULE, kind.mark);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Set ipv4 rule fail. Interface : " << ifname;
    }
    const int route = set_ip4_route(index, ip4_addr.c_str(), static_cast<unsigned char>(ip4_prefix),
                                    ip4_gw.c_str(), RTM_NEWROUTE);
    if (route != NM_OK) {
        NM_LOG(Error) << "Set ipv4 source route fail. Interface : " << ifname;
    }
    keep_first(ret, route);
    return ret;
}

bool UplinkIfaceInfo::is_routed4(const char* address, int prefix, const char* gateway) const {
    return prefix > 0 &&
           nm::is_source_routed(AF_INET, {static_cast<unsigned int>(ifindex), address,
                                          static_cast<unsigned char>(prefix), gateway, 0, kind.mark});
}

int UplinkIfaceInfo::disable_ipv4(int mode) {
    NM_LOG(Info) << "Interface: " << ifname << ", ip4_type: " << ip4_type;
    return NM_EXIT(has_session() ? disable_session() : disable_ip(mode));
}

/// The session's own report of its end waits for the lock that is held here. By then the port may have been
/// set up anew, so all that hung on its address goes now, and the report finds no configuration any more. The
/// sets come first: when the session is gone nobody knows its address.
int UplinkIfaceInfo::disable_session() {
    (void)setup_ipset("del", runtime_ip4.substr(0, runtime_ip4.find('/')));  // logged there, as all of this
    const int ret = setup_pppoe_service(0);
    (void)del_dns4();
    take_down_overlays();
    return ret;
}

int UplinkIfaceInfo::remove_hosts() {
    const int ret = del_hosts(run_ifname, AF_INET);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Delete hosts failed, interface: " << run_ifname;
    }
    return ret;
}

int UplinkIfaceInfo::disable_ip(int mode) {
    int ret = remove_hosts();
    if (ip4_type == "DHCP") {
        keep_first(ret, setup_ipv4_dhcp(mode));
    }
    (void)del_dns4();  // also those of a lease: a client that is stopped reports nothing
    keep_first(ret, remove_addresses());
    take_down_overlays();
    return ret;
}

/// All of it is reported to others, who log for themselves what they could not do.
void UplinkIfaceInfo::take_down_overlays() {
    (void)setup_wan_monitor(0, run_ifname, "");
    (void)setup_tun(0);
    inspect_traffic(0, run_ifname);
    (void)setup_ipsec(0, "");
    forget_at_peers();
}

int UplinkIfaceInfo::remove_addresses() {
    int ret = NM_OK;
    if (ifindex == 0) {
        NM_LOG(Error) << run_ifname << " doesn't exist.";
    } else if ((ret = delete_routerule(run_ifname.c_str(), ifindex, AF_INET)) != NM_OK) {
        NM_LOG(Error) << "delete route rule failed!";
    }
    const int flushed = ifindex != 0 ? flush_ipv4_addr(static_cast<unsigned int>(ifindex)) : NM_OK;
    if (flushed != NM_OK) {
        NM_LOG(Error) << "flush ipv4 addr failed!";
    }
    keep_first(ret, flushed);
    for (const std::string& address : addresses_in_sets()) {
        (void)setup_ipset("del", address);
    }
    return ret;
}

/// The address that was on the device, and the configured one if it is another: a setup that was killed, or
/// that could not edit a set, may have taken it off the device alone. Without an address on the device the
/// lease knows.
std::set<std::string> UplinkIfaceInfo::addresses_in_sets() {
    std::set<std::string> addresses;
    if (!runtime_ip4.empty()) {
        addresses.insert(runtime_ip4.substr(0, runtime_ip4.find('/')));
    }
    if (ip4_type == "STATIC" && is_valid_ip(ip4_addr.c_str())) {
        addresses.insert(ip4_addr);
    }
    DHCP_INFO lease{};
    if (ip4_type == "DHCP" && addresses.empty() && get_dhcp_info(lease) == NM_OK) {
        addresses.insert(lease.ip);
    }
    return addresses;
}

int UplinkIfaceInfo::set_dhcp_source_route(DHCP_INFO& info, std::string& act) {
    if (act != "add" && act != "del") {
        NM_LOG(Error) << "Unknown act: " << act;
        return NM_ERR_BAD_ACT;
    }
    if (ifindex == 0 && act == "del" && has_session()) {
        NM_LOG(Debug) << run_ifname << " has gone, and its routes with it.";
        return NM_OK;
    }
    if (ifindex == 0) {
        NM_LOG(Error) << "No such iface: " << run_ifname;
        return NM_ERR_NO_IFACE;
    }
    if (act == "add" && is_routed4(info.ip, mask_to_prefix(info.netmask), info.gateway)) {
        NM_LOG(Debug) << "Routes and rules are in force. Interface: " << run_ifname;
        return NM_OK;
    }
    int ret = delete_routerule(run_ifname.c_str(), ifindex, AF_INET);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Delete source route or rule fail. Interface: " << run_ifname;
    }
    if (act == "add") {
        ret = write_dhcp_routes(info);
    }
    return ret;
}

int UplinkIfaceInfo::write_dhcp_routes(const DHCP_INFO& info) {
    NM_LOG(Debug) << "dhcp add source route. Interface: " << run_ifname;
    if (*info.ip == '\0' || *info.netmask == '\0' || *info.gateway == '\0') {
        NM_LOG(Error) << "Insufficient dhcpc information. Interface: " << run_ifname;
        NM_LOG(Debug) << "IP[" << info.ip << "], MASK[" << info.netmask << "], GW[" << info.gateway << "]";
        return NM_ERR_EMPTY;
    }
    const int prefix = mask_to_prefix(info.netmask);
    if (prefix < 0) {
        NM_LOG(Error) << "Bad netmask: " << info.netmask;
        return prefix;
    }
    const auto index = static_cast<unsigned int>(ifindex);
    int ret = set_ip4_route(index, info.ip, static_cast<unsigned char>(prefix), info.gateway, RTM_NEWROUTE);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Set ipv4 source route fail. Interface : " << run_ifname;
    }
    const int rule = set_ip4_rule(index, info.ip, RTM_NEWRULE, kind.mark);
    if (rule != NM_OK) {
        NM_LOG(Error) << "Set ipv4 rule fail. Interface : " << run_ifname;
    }
    keep_first(ret, rule);
    return ret;
}

int UplinkIfaceInfo::dhcp_source_route_cb(DHCP_INFO& info, std::string& act) {
    NM_LOG(Debug) << "Enter";
    const int mode = act == "add" ? 1 : 0;
    const int ret = set_dhcp_source_route(info, act);
    if (ret != NM_OK) {
        NM_LOG(Error) << "set_dhcp_source_route fail, Ret: " << ret;
    } else {
        NM_LOG(Debug) << "set_dhcp_source_route OK.";
    }
    (void)setup_ipset(mode == 1 ? "add" : "del", info.ip);
    set_up_overlays(mode, info.ip, info.gateway);
    if (act == "add") {
        tell_peers(info.ip, mask_to_prefix(info.netmask));
        const char* const number = ip4_type == "PPPOE" ? kEventSessionUp : kEventLeaseGot;
        (void)vslog_send({kUplinkEvents, number, {port_number_text(portname), info.ip}});
    }
    if (act == "del") {
        forget_at_peers();
    }
    return NM_EXIT(ret);
}

int UplinkIfaceInfo::setup_ipset(const std::string& action, const std::string& ip) {
    if (ip.empty()) {
        return NM_OK;
    }
    int ret = edit_ipset(action, "localip", ip);
    keep_first(ret, edit_ipset(action, "WANIFSET", ip + "," + run_ifname));
    return ret;
}

int UplinkIfaceInfo::setup_ip6_ipset(const std::string& action, const std::string& ip) {
    return ip.empty() ? NM_OK : edit_ip6_ipset(action, "ip6_localip", ip);
}

/// All of it is reported to others, who log for themselves what they could not do.
void UplinkIfaceInfo::set_up_overlays(int mode, const std::string& address, const std::string& gateway) {
    (void)setup_tun(mode);
    inspect_traffic(mode, run_ifname);
    (void)setup_wan_monitor(mode, run_ifname, gateway);
    (void)setup_ipsec(mode, address);
}

void UplinkIfaceInfo::tell_peers(const std::string&, int) {
    const auto peer_id = static_cast<uint8_t>(id_);
    (void)update_ipinfo(peer_id, run_ifname, path);
    (void)update_ncsi(run_ifname, peer_id, path);
}

void UplinkIfaceInfo::forget_at_peers() {
    const auto peer_id = static_cast<uint8_t>(id_);
    std::string reply = kNoResponse;
    (void)remove_ipinfo(peer_id, run_ifname, path, reply);
    reply = kNoResponse;
    (void)remove_ncsi(reply, run_ifname, path, peer_id);
}

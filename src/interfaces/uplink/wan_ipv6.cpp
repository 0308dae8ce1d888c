// The IPv6 side of a WAN port: its address, routes and rules, and the downlinks that have their IPv6 from it.
#include <arpa/inet.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "interfaces/uplink/WanIfaceInfo.h"
#include "interfaces/uplink/downlink_locks.h"
#include "kernel/address.h"
#include "kernel/default_route.h"
#include "kernel/link.h"
#include "kernel/uplink_routing.h"
#include "log.h"
#include "result_codes.h"
#include "services/dns/hosts.h"
#include "services/dns/name_servers.h"
#include "services/leases/ipv6_record.h"
#include "utils/ip6_prefix.h"
#include "utils/ip_text.h"
#include "utils/locks.h"
#include "utils/shell_text.h"
#include "utils/unit_names.h"
#include "utils/units.h"

namespace {

constexpr int kWholeAddress = 128;

/// Keeps the first failure of several steps.
void keep_first(int& first, int ret) {
    first = first == NM_OK ? ret : first;
}

bool has_downlink(const std::vector<ipv6_downlink>& list, const std::string& ifname) {
    return std::any_of(list.begin(), list.end(),
                       [&](const ipv6_downlink& downlink) { return downlink.ifname == ifname; });
}

/// Every downlink once: a relay with a service of its own is in both lists, and its lock can be had once
/// only.
std::vector<ipv6_downlink> downlinks_of(const std::string& uplink, const std::string& path) {
    std::vector<ipv6_downlink> all;
    for (const auto collect : {get_all_ipv6_radvd_downlink, get_all_ipv6_relay_downlink}) {
        std::vector<ipv6_downlink> list;
        (void)collect(uplink, path, list);  // a document that cannot be read is logged and names none
        for (const ipv6_downlink& downlink : list) {
            if (!has_downlink(all, downlink.ifname)) {
                all.push_back(downlink);
            }
        }
    }
    return all;
}

unsigned char prefix_of(const DHCP6_INFO& lease) {
    return static_cast<unsigned char>(atoi(lease.prefixlen));
}

void log_failure(int ret, const char* text) {
    if (ret != NM_OK) {
        NM_LOG(Error) << text;
    }
}

}  // namespace

nm::DownlinkLocks::~DownlinkLocks() {
    for (const downlink_lock_info& downlink : held_) {
        (void)unlock_ex(downlink.lock_fd, downlink.ifname.c_str(), false);  // it is closed in every case
    }
}

void WanIfaceInfo::get_ipv6_downlink_lock(std::vector<downlink_lock_info>& locks) {
    lock_downlinks([](const std::string&) { return true; }, locks);
}

void WanIfaceInfo::lock_downlinks(const std::function<bool(const std::string& lan)>& is_wanted,
                                  std::vector<downlink_lock_info>& locks) {
    skipped_.clear();
    for (const ipv6_downlink& downlink : downlinks_of(portname, path)) {
        if (!is_wanted(downlink.ifname)) {
            continue;
        }
        const int fd = lock_ex(downlink.ifname.c_str());
        if (fd < 0) {
            NM_LOG(Error) << "Failed to get lock of the uplink interface " << downlink.ifname << "; skip.";
            skipped_.push_back(downlink.ifname);
            continue;
        }
        NM_LOG(Debug) << "Get downlink " << downlink.ifname << "'s lock.";
        locks.push_back({downlink, fd});
    }
}

int WanIfaceInfo::setup_ipv6(uint32_t opt) {
    NM_LOG(Trace) << "Interface : " << ifname << ", ip6_type: " << ip6_type << ", opt: " << opt;
    if (ip6_type == "DISABLED" || ip6_type == "PPPOEV6") {
        NM_LOG(Debug) << ip6_type << "; do nothing.";
        return NM_OK;
    }
    return ip6_type == "STATIC" ? setup_ipv6_static() : setup_ipv6_dhcpcd(1);
}

int WanIfaceInfo::setup_ipv6_static() {
    NM_LOG(Debug) << "Enter";
    nm::DownlinkLocks downlinks;
    downlinks.take(*this);
    int ret = check_static6();
    if (ret != NM_OK) {
        return NM_EXIT(ret);
    }
    if (!has_static6()) {
        (void)clear_kernel6();  // logged there; what stays is refused when it is written again
    }
    (void)del_hosts(run_ifname, AF_INET6);  // a line is added whether or not there is one like it
    ret = write_static_address6();
    if (ret != NM_OK) {
        return NM_EXIT(ret);
    }
    const int routed = set_up_lease(static_lease(), downlinks, false);
    if (set_iface_flags(ifname.c_str(), IFF_UP) != NM_OK) {
        NM_LOG(Error) << "Set interface up failed. Interface: " << ifname;
    }
    (void)insert_dns_server(ip6_dns, run_ifname);  // logged there; names are not part of the address
    return NM_EXIT(routed);
}

int WanIfaceInfo::check_static6() {
    if (!nm::is_device_address6(ip6_addr)) {
        NM_LOG(Error) << "Bad ipv6 address!. ip6_addr: " << ip6_addr;
        return NM_ERR_BAD_IP;
    }
    if (ifindex == 0) {
        NM_LOG(Error) << "No such Iface: " << ifname;
        return NM_ERR_NO_IFACE;
    }
    if (ip6_prefix < 1 || ip6_prefix > kWholeAddress) {
        NM_LOG(Error) << "Bad prefix.";
        return NM_ERR_BAD_IP;
    }
    return ip6_type == "STATIC" ? NM_OK : NM_ERR_BAD_TYPE;
}

/// A device that has what is asked for keeps it, and no packet notices.
bool WanIfaceInfo::has_static6() {
    const std::string whole = ip6_prefix < kWholeAddress ? "/" + std::to_string(ip6_prefix) : "";
    return nm::has_only_address(static_cast<unsigned int>(ifindex), AF_INET6, ip6_addr + whole) &&
           is_routed6(static_lease());
}

/// The kernel takes no IPv6 route on a device that is down, so the device goes up before them.
int WanIfaceInfo::write_static_address6() {
    std::string address = ip6_addr + "/" + std::to_string(ip6_prefix);
    const int ret = set_ipv6_addr(static_cast<unsigned int>(ifindex), address, RT_SCOPE_UNIVERSE);
    if (ret != NM_OK) {
        NM_LOG(Error) << "set ipv6 address failed. Interface: " << ifname << ", Address: " << ip6_addr;
        return ret;
    }
    (void)set_iface_flags(ifname.c_str(), IFF_UP);  // asked again, and logged, after the routes
    return NM_OK;
}

DHCP6_INFO WanIfaceInfo::static_lease() const {
    DHCP6_INFO lease{};
    (void)snprintf(lease.address, sizeof(lease.address), "%s", ip6_addr.c_str());
    (void)snprintf(lease.prefixlen, sizeof(lease.prefixlen), "%u", static_cast<unsigned char>(ip6_prefix));
    if (is_valid_ip6(ip6_gw.c_str())) {
        (void)snprintf(lease.gateway, sizeof(lease.gateway), "%s", ip6_gw.c_str());
    }
    return lease;
}

bool WanIfaceInfo::is_routed6(const DHCP6_INFO& lease) {
    const auto index = static_cast<unsigned int>(ifindex);
    uint32_t metric = 0;
    (void)get_interface_prio(metric);  // logged there, and 1 then
    return nm::is_source_routed(AF_INET6, {index, lease.address, prefix_of(lease), lease.gateway, metric,
                                           kind.mark, run_ifname.c_str()}) &&
           nm::has_only_default_route6(index, lease.gateway, metric);
}

int WanIfaceInfo::clear_routes6() {
    const int ret = delete_routerule(run_ifname.c_str(), ifindex, AF_INET6);
    log_failure(ret, (run_ifname + ": delete route rule failed!").c_str());
    (void)nm::clear_default_routes(static_cast<unsigned int>(ifindex), AF_INET6);  // reported there
    return ret;
}

/// Removes what the uplink has in the kernel, its addresses last.
int WanIfaceInfo::clear_kernel6() {
    int ret = clear_routes6();
    const int flushed = flush_ipv6_addr(static_cast<unsigned int>(ifindex));
    log_failure(flushed, (run_ifname + ": flush IPv6 address failed!").c_str());
    keep_first(ret, flushed);
    return ret;
}

/// All that follows an address on the device. `is_new` says that it came while the uplink was up, so that the
/// relays that run know another one.
int WanIfaceInfo::set_up_lease(const DHCP6_INFO& lease, const nm::DownlinkLocks& downlinks, bool is_new) {
    (void)setup_ip6_ipset("add", lease.address);
    const int ret = write_routes6(lease);
    for (const downlink_lock_info& downlink : downlinks.held()) {
        attach(downlink, lease, is_new);
    }
    // All of it is reported to others, who log for themselves what they could not do.
    (void)add_hosts(lease.address, run_ifname);
    (void)setup_tun6(1);
    (void)setup_ipsec6(1, lease.address);
    return ret;
}

int WanIfaceInfo::write_routes6(const DHCP6_INFO& lease) {
    if (is_routed6(lease)) {
        NM_LOG(Debug) << "Routes and rules are in force. Interface: " << run_ifname;
        return NM_OK;
    }
    const auto index = static_cast<unsigned int>(ifindex);
    uint32_t metric = 0;
    (void)get_interface_prio(metric);  // logged there, and 1 then
    NM_LOG(Debug) << "dev: " << run_ifname << ", ifindex: " << ifindex << ", ip6_addr: " << lease.address
                  << ", ip6_gw: " << lease.gateway << ", ip6_prefix: " << lease.prefixlen
                  << ", metric: " << metric;
    int ret = set_ip6_rule(index, lease.address, RTM_NEWRULE, kind.mark, run_ifname.c_str());
    log_failure(ret, "Failed to setup IPv6 rule!");
    const int route =
        set_ip6_route(index, lease.address, prefix_of(lease), lease.gateway, metric, RTM_NEWROUTE);
    log_failure(route, "Failed to setup IPv6 route!");
    keep_first(ret, route);
    const int by_default =
        *lease.gateway != '\0' ? nm::add_default_route(index, lease.gateway, metric) : NM_OK;
    log_failure(by_default, "Failed to setup default table route!");
    keep_first(ret, by_default);
    return ret;
}

/// A LAN that shares the uplink's prefix needs its neighbours told of it, and a relay hands everything on;
/// one with a prefix of its own needs the way to the uplink that this prefix belongs to.
void WanIfaceInfo::attach(const downlink_lock_info& downlink, const DHCP6_INFO& lease, bool is_new) {
    if (downlink.ip6_type == "RELAY") {
        run_relay(downlink, "-A", is_new);
        return;
    }
    const std::string prefix = get_ip6_prefix_addr(lease.address, prefix_of(lease));
    const std::string own =
        get_ip6_prefix_addr(downlink.ip6_addr.c_str(), static_cast<unsigned char>(downlink.ip6_prefix));
    NM_LOG(Debug) << "Uplink ipv6 prefix: " << prefix << ", Downlink ipv6 prefix: " << own;
    if (prefix == own) {
        unroute(downlink);  // it may have had another prefix than the uplink
        run_relay(downlink, "-N", is_new);
        return;
    }
    if (is_new && service_stop(nm::kRelay6Unit, downlink.ifname.c_str(), nullptr) != NM_OK) {
        NM_LOG(Error) << "Disabled 6relayd fail. Interface: " << downlink.ifname;
    }
    if (downlink.ip6_type == "STATIC" && downlink.ifindex != 0) {
        // It is logged there; the uplink is up all the same.
        (void)nm::route_downlink({downlink.ifindex, static_cast<unsigned int>(ifindex),
                                  downlink.ip6_addr.c_str(), static_cast<unsigned int>(downlink.ip6_prefix),
                                  lease.gateway, 1});
    }
}

void WanIfaceInfo::run_relay(const downlink_lock_info& downlink, const char* mode, bool is_new) {
    const std::string uplink = nm::shell_word(run_ifname).value_or("");  // units quote as shells do
    const std::string env = "UPLINK=" + uplink + "\nMODE=" + mode;
    if (is_new) {
        NM_LOG(Debug) << "Restart 6relayd " << mode << ". Interface: " << downlink.ifname;
    }
    const int ret =
        (is_new ? service_restart : service_start)(nm::kRelay6Unit, downlink.ifname.c_str(), env.c_str());
    if (ret != NM_OK) {
        NM_LOG(Error) << (is_new ? "Restart" : "Enable") << " 6relayd fail. Interface: " << downlink.ifname;
    }
}

void WanIfaceInfo::unroute(const downlink_lock_info& downlink) {
    if (downlink.ifindex != 0) {
        (void)set_ip6_routerule_by_oifindex(downlink.ifindex, 0, nullptr, 0, nullptr, 0, 1);  // logged there
    }
}

void WanIfaceInfo::detach(const nm::DownlinkLocks& downlinks) {
    for (const downlink_lock_info& downlink : downlinks.held()) {
        NM_LOG(Debug) << "Clean up downlink " << downlink.ifname << " routerule.";
        unroute(downlink);
        (void)service_stop(nm::kRelay6Unit, downlink.ifname.c_str(), nullptr);  // there may be none
    }
}

int WanIfaceInfo::disable_ipv6(int mode) {
    if (ip6_type == "PPPOEV6") {
        return setup_pppoe_service(0);
    }
    if (ip6_type == "DISABLED") {
        NM_LOG(Debug) << ifname << " does not enable IPv6.";
        return NM_OK;
    }
    return NM_EXIT(take_down_ipv6(mode));
}

/// The client goes first: it would put its address back. What it had is in its record until then.
int WanIfaceInfo::take_down_ipv6(int mode) {
    NM_LOG(Debug) << "DHCP act: " << mode;
    nm::DownlinkLocks downlinks;
    downlinks.take(*this);
    const std::set<std::string> addresses = addresses_in_sets6();
    int ret = ip6_type == "STATIC" ? NM_OK : setup_ipv6_dhcpcd(mode);
    detach(downlinks);
    (void)del_hosts(run_ifname, AF_INET6);  // logged there
    keep_first(ret, remove_addresses6());
    for (const std::string& address : addresses) {
        (void)setup_ip6_ipset("del", address);
    }
    (void)remove_dns_server(run_ifname, AF_INET6);  // logged there
    take_down_overlays6();
    return ret;
}

/// A session's device may have gone by now, and has left its rules.
int WanIfaceInfo::remove_addresses6() {
    if (ifindex == 0) {
        NM_LOG(Debug) << run_ifname << " doesn't exist; skip flush routerule.";
        return NM_OK;
    }
    if (get_iface_index(run_ifname.c_str()) != ifindex) {
        return nm::delete_session_routerule(run_ifname, ifindex, AF_INET6);
    }
    return clear_kernel6();
}

/// All of it is reported to others, who log for themselves what they could not do.
void WanIfaceInfo::take_down_overlays6() {
    (void)setup_tun6(0);
    (void)setup_ipsec6(0, "");
}

/// The address on the device, the configured one, and what the client was given last: a setup that was
/// killed, or a link that was unplugged, may have left any of them in the sets.
std::set<std::string> WanIfaceInfo::addresses_in_sets6() {
    std::set<std::string> addresses{runtime_ip6.substr(0, runtime_ip6.find('/'))};
    if (ip6_type == "STATIC" && is_valid_ip6(ip6_addr.c_str())) {
        addresses.insert(ip6_addr);
    }
    Json::Value record;
    if (ip6_type != "STATIC" && nm::read_ipv6_record(ifname, record) == NM_OK) {
        addresses.insert(nm::address_in_force(record));
    }
    addresses.erase("");
    return addresses;
}

// The DHCPv6 and SLAAC client of a WAN port, and what becomes of the leases that it reports.
#include <net/if.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdio>

#include "interfaces/uplink/WanIfaceInfo.h"
#include "interfaces/uplink/downlink_locks.h"
#include "kernel/address.h"
#include "kernel/address_ipv6.h"
#include "kernel/link.h"
#include "log.h"
#include "result_codes.h"
#include "services/dhcpcd/nm_dhcpcd.h"
#include "services/dns/hosts.h"
#include "services/dns/name_servers.h"
#include "services/leases/ipv6_record.h"
#include "utils/ip_text.h"
#include "utils/json_text.h"

namespace {

constexpr int kMakeRecord = 1;
constexpr int kRemoveRecord = 2;

template <size_t size>
void store(char (&field)[size], const std::string& text) {
    snprintf(field, size, "%s", text.c_str());
}

/// A text of the record that is an address, else nothing.
std::string address_of(const Json::Value& record, const char* key) {
    const std::string text = nm::json_string_or(record, key, "");
    return is_valid_ip6(text.c_str()) ? text : "";
}

std::vector<std::string> servers_of(const Json::Value& record) {
    std::vector<std::string> servers;
    for (const Json::Value& server : nm::json_member(record, "dns")) {
        servers.push_back(nm::json_scalar(server));
    }
    return servers;
}

}  // namespace

int WanIfaceInfo::setup_ipv6_dhcpcd(int mode) {
    NM_LOG(Debug) << "Enter, mode: " << mode;
    if (ip6_type == "STATIC") {
        NM_LOG(Error) << "Bad ipv6 type! ip6_type: " << ip6_type;
        return NM_EXIT(NM_ERR_BAD_TYPE);
    }
    const int ret = mode == 1 ? start_client() : stop_client();
    if (ret != NM_OK) {
        NM_LOG(Error) << "Failed to setup " << ifname << " IPv6 type " << ip6_type << "! ret: " << ret;
    }
    return NM_EXIT(ret);
}

int WanIfaceInfo::start_client() {
    int ret = prepare_link();
    if (ret != NM_OK) {
        return ret;
    }
    ret = set_ipv6_info(kMakeRecord);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Failed to create " << ifname << " IPv6 iface info!";
        return ret;
    }
    const dhcpcd_iface client = describe_client();
    ret = dhcpcd_iface_set(&client);
    ret = ret != NM_OK ? ret : dhcpcd_iface_rebind(run_ifname);
    if (ret != NM_OK) {
        (void)stop_client();  // what went wrong first is the result
    }
    return ret;
}

/// The client speaks from the link-local address. That of a session is agreed upon with the far end, maybe
/// after the session has been reported; the client waits for it.
int WanIfaceInfo::prepare_link() {
    if (ip6_type != "PPPOEV6") {
        (void)set_iface_flags(run_ifname.c_str(),
                              IFF_UP);  // the kernel makes the address of a link that is up
    }
    const auto index = static_cast<unsigned int>(ifindex);
    std::string address;
    (void)get_ipv6_link_addr(index, address);  // one that cannot be read is missing
    if (!address.empty()) {
        return NM_OK;
    }
    if (ip6_type == "PPPOEV6") {
        NM_LOG(Error) << ifname << " PPPoEv6 missing link local address!!!";
        return NM_OK;
    }
    const int ret = gen_ipv6_default_link_addr(index, address);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Failed to generate default IPv6 link local address!";
    }
    return ret;
}

/// A session's device has no MAC; that of the port beneath identifies it. Routes of a lease become those of
/// the uplink's own table, so the client adds no gateway.
dhcpcd_iface WanIfaceInfo::describe_client() {
    dhcpcd_iface client{};
    store(client.ifname, run_ifname);
    store(client.hw_ifname, ifname);
    uint32_t metric = 0;
    (void)get_interface_prio(metric);  // logged there, and 1 then
    client.metric = static_cast<int32_t>(metric);
    client.nogateway = client.noipv4 = true;
    client.ia_na = ip6_type == "DHCPV6";
    client.ia_pd = dhcp6_pd;
    client.nodhcp6 = ip6_type == "SLAAC" && !dhcp6_pd;
    return client;
}

/// The record goes before the client does, whose last report then finds nobody waiting for it.
int WanIfaceInfo::stop_client() {
    int ret = NM_OK;
    for (const int step :
         {dhcpcd_iface_unset(run_ifname), set_ipv6_info(kRemoveRecord), dhcpcd_iface_exit(run_ifname)}) {
        ret = ret != NM_OK ? ret : step;
    }
    return ret;
}

int WanIfaceInfo::setup_session_ipv6(int mode) {
    if (ip6_type != "PPPOEV6") {
        return NM_OK;
    }
    return mode == 1 ? setup_ipv6_dhcpcd(1) : take_down_ipv6(mode);
}

int WanIfaceInfo::get_ipv6_info(Json::Value& info) {
    return nm::read_ipv6_record(ifname, info);
}

int WanIfaceInfo::set_ipv6_info(int mode) {
    if (mode != kMakeRecord) {
        return nm::remove_ipv6_record(ifname);
    }
    uint32_t metric = 0;
    (void)get_interface_prio(metric);  // logged there, and 1 then
    Json::Value old;
    (void)get_ipv6_info(old);  // mostly there is none
    Json::Value record;
    for (const char* key :
         {"curr_ip", "curr_prefix_length", "curr_gateway", "curr_pd_prfx", "curr_pd_prfx_len"}) {
        record[key] = "";
    }
    record["pdInfo"] = record["dns"] = Json::arrayValue;
    record["iface_index"] = std::to_string(ifindex);
    record["curr_metric"] = std::to_string(metric);
    record["type"] = ip6_type;
    record["path"] = path;
    record["in_force"] = nm::json_member(old, "in_force");
    return nm::write_ipv6_record(ifname, record);
}

int WanIfaceInfo::cast_ipv6_info_to_dhcp6_info(Json::Value info, DHCP6_INFO& lease) {
    lease = {};
    const std::vector<std::string> servers = servers_of(info);
    store(lease.address, address_of(info, "curr_ip"));
    store(lease.prefixlen, nm::json_string_or(info, "curr_prefix_length", "128"));
    store(lease.gateway, address_of(info, "curr_gateway"));
    store(lease.dns1, !servers.empty() ? servers[0] : "");
    store(lease.dns2, servers.size() > 1 ? servers[1] : "");
    return *lease.address != '\0' ? NM_OK : NM_ERR_EMPTY;
}

int WanIfaceInfo::dhcp6_source_route_cb(std::string act) {
    NM_LOG(Debug) << "Enter, act: " << act;
    if (act != "add" && act != "del") {
        NM_LOG(Error) << "Unknown act: " << act;
        return NM_EXIT(NM_ERR_BAD_ACT);
    }
    if (ifindex == 0) {
        NM_LOG(Error) << "No such iface: " << run_ifname;
        return NM_EXIT(NM_ERR_NO_IFACE);
    }
    Json::Value info;
    DHCP6_INFO lease{};
    int ret = get_ipv6_info(info);
    if (ret == NM_OK) {
        ret = cast_ipv6_info_to_dhcp6_info(info, lease);
    }
    if (act == "del" && ret == NM_ERR_EMPTY) {
        ret = NM_OK;
    }
    if (ret != NM_OK) {
        return NM_EXIT(ret);
    }
    NM_LOG(Debug) << "DHCPv6 IP: " << lease.address;
    NM_LOG(Debug) << "DHCPv6 Prefix Length: " << lease.prefixlen;
    NM_LOG(Debug) << "DHCPv6 Gateway: " << lease.gateway;
    const bool has_waiting = !nm::skipped_downlinks(info).empty();
    if (*lease.address != '\0' && has_waiting && nm::is_in_force(info, nm::kAddressKeys)) {
        return NM_EXIT(follow_up(info, lease));
    }
    nm::DownlinkLocks downlinks;
    downlinks.take(*this);
    return NM_EXIT(replace_lease(info, lease, downlinks));
}

/// Nothing is new but for LANs that were skipped: what the port and its other LANs have stays.
int WanIfaceInfo::follow_up(const Json::Value& info, const DHCP6_INFO& lease) {
    const std::vector<std::string> waiting = nm::skipped_downlinks(info);
    nm::DownlinkLocks downlinks;
    const auto waits = [&](const std::string& lan) {
        return std::find(waiting.begin(), waiting.end(), lan) != waiting.end();
    };
    lock_downlinks(waits, downlinks.held());
    for (const downlink_lock_info& downlink : downlinks.held()) {
        attach(downlink, lease, true);
    }
    return note_followers(info, downlinks);
}

/// The addresses themselves are the client's own, who knows when they end.
int WanIfaceInfo::replace_lease(const Json::Value& info, const DHCP6_INFO& lease,
                                const nm::DownlinkLocks& downlinks) {
    const std::string before = nm::address_in_force(info);
    int ret = *lease.address != '\0' && is_routed6(lease) ? NM_OK : clear_routes6();
    (void)del_hosts(run_ifname, AF_INET6);  // logged there, as all below that has no result
    if (before != lease.address) {
        (void)setup_ip6_ipset("del", before);
    }
    (void)remove_dns_server(run_ifname, AF_INET6);
    if (*lease.address != '\0') {
        ret = set_up_lease(lease, downlinks, true);
        (void)insert_dns_server(ip6_dns.empty() ? servers_of(info) : ip6_dns, run_ifname);
    } else {
        leave_without_address(lease, !nm::json_string_or(info, "curr_pd_prfx", "").empty(), downlinks);
    }
    if (*lease.address == '\0' && !before.empty()) {
        take_down_overlays6();
    }
    const int noted = nm::mark_in_force(ifname, info, nm::kAddressKeys);
    const int followed = note_followers(info, downlinks);
    ret = ret != NM_OK ? ret : noted;
    return ret != NM_OK ? ret : followed;
}

/// A LAN that was skipped before counts as done, too, if it is a downlink no more. Those that note themselves
/// while this one works stay in the list.
int WanIfaceInfo::note_followers(const Json::Value& info, const nm::DownlinkLocks& downlinks) {
    std::vector<std::string> done = nm::skipped_downlinks(info);
    for (const downlink_lock_info& downlink : downlinks.held()) {
        done.push_back(downlink.ifname);
    }
    for (const std::string& name : skipped_) {
        NM_LOG(Error) << name << " follows " << ifname << " when it is free, or at the next report.";
    }
    return nm::note_downlinks(ifname, done, skipped_);
}

/// A provider may give prefixes and no address: the downlinks reach its router from theirs.
void WanIfaceInfo::leave_without_address(const DHCP6_INFO& lease, bool has_delegation,
                                         const nm::DownlinkLocks& downlinks) {
    if (!has_delegation || *lease.gateway == '\0') {
        detach(downlinks);
        return;
    }
    for (const downlink_lock_info& downlink : downlinks.held()) {
        attach(downlink, lease, true);
    }
}

// The IPv6 side of LAN interfaces: addresses, how the clients are numbered, and by which uplink they leave.
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>

#include "config/port_lookup.h"
#include "interfaces/lan/LanIfaceInfo.h"
#include "interfaces/lan/delegation.h"
#include "interfaces/uplink/available_info.h"
#include "kernel/address.h"
#include "kernel/address_ipv6.h"
#include "kernel/ipset.h"
#include "kernel/link.h"
#include "kernel/uplink_routing.h"
#include "log.h"
#include "result_codes.h"
#include "services/dns/hosts.h"
#include "services/dns/lan_dnsmasq.h"
#include "services/leases/ipv6_record.h"
#include "services/radv/dhcpd6.h"
#include "services/radv/radvd.h"
#include "utils/containers.h"
#include "utils/files.h"
#include "utils/handles.h"
#include "utils/ip_text.h"
#include "utils/json_text.h"
#include "utils/shell_text.h"
#include "utils/unit_names.h"
#include "utils/units.h"

namespace {

/// How the relay runs: as a relay of advertisements and DHCPv6, or as a proxy of neighbour discovery alone.
constexpr const char* kRelayAll = "-A";
constexpr const char* kRelayNeighbours = "-N";

constexpr const char* kBootMarker = "/var/run/network/.boot_fin";
constexpr int kMostBits = 128;

/// What radvd takes of a router's lifetime beside 0; it refuses the blocks of all LANs for one with another.
constexpr uint32_t kShortestRouter = 30;
constexpr uint32_t kLongestRouter = 9000;

/// What the DHCPv6 server takes.
constexpr uint32_t kShortestLease = 300;
constexpr uint32_t kLongestLease = 2592000;

bool is_ip6(const std::string& address) {
    return nm::is_plain(address) && is_valid_ip6(address.c_str());
}

std::vector<std::string> addresses_of(const Json::Value& list) {
    std::vector<std::string> addresses;
    for (const Json::Value& element : list.isArray() ? list : Json::Value(Json::arrayValue)) {
        if (is_ip6(nm::json_scalar(element))) {
            addresses.push_back(element.asString());
        } else {
            NM_LOG(Error) << "Bad IPv6 name server: " << nm::show_json(element);
        }
    }
    return addresses;
}

int read_seconds(const std::string& text, const char* key, uint32_t& seconds) {
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, seconds);
    if (error == std::errc() && rest == end) {
        return NM_OK;
    }
    NM_LOG(Error) << "[" << key << "] is not a number of seconds: " << text;
    return NM_ERR_BAD_FORMAT;
}

int check_router_lifetime(uint32_t seconds) {
    if (seconds == 0 || (seconds >= kShortestRouter && seconds <= kLongestRouter)) {
        return NM_OK;
    }
    NM_LOG(Error) << "[IP6_LIFETIME] is neither 0 nor between " << kShortestRouter << " and "
                  << kLongestRouter << ": " << seconds;
    return NM_ERR_BAD_FORMAT;
}

int first_failure(int one, int other) {
    return one != NM_OK ? one : other;
}

}  // namespace

void LanIfaceInfo::read_ipv6(const Json::Value& entry) {
    ip6_type = nm::json_text(entry, "IP6_TYPE", "DISABLED");
    ip6_type = ip6_type.empty() ? "DISABLED" : ip6_type;
    ip6_addr = nm::json_text(entry, "IP6_ADDR");
    ip6_prefix = atoi(nm::json_text(entry, "IP6_PREFIX", "64").c_str());
    ip6_uplink = nm::json_text(entry, "IP6_UPLINK");
    ip6_service_type = nm::json_text(entry, "IP6_SERVICE_TYPE", "DISABLED");
    ip6_range_start = nm::json_text(entry, "IP6_RANGE_START");
    ip6_range_end = nm::json_text(entry, "IP6_RANGE_END");
    ip6_lifetime = nm::json_text(entry, "IP6_LIFETIME", "3600");
    ip6_lease_time = nm::json_text(entry, "IP6_LEASE_TIME", "86400");
    ip6_dns_servers = addresses_of(nm::json_member(entry, "IP6_DNS_SERVERS"));
    ip6_pd_prefix = nm::json_text(entry, "IP6_PD_PREFIX");
    ip6_dhcp_pd = nm::json_text(entry, "IP6_DHCP_PD", "DISABLED") == "ENABLED";
    const auto length = static_cast<unsigned char>(ip6_prefix);
    if (ip6_dhcp_pd && cast_ip6_addr_to_obj(ip6_addr, length, ip6_pd_prefix, &ip6_obj) != NM_OK) {
        NM_LOG(Error) << "Failed to cast IPv6 address into general unicast address format!";
        ip6_dhcp_pd = false;
    }
}

/// A relayed LAN has no clients of its own to number, one without an address nothing to number them from.
bool LanIfaceInfo::serves_ipv6() const {
    return ip6_type == "STATIC" && ip6_service_type != "DISABLED";
}

/// The LAN's prefix without its length; empty for a bad address or prefix.
std::string LanIfaceInfo::ip6_network() const {
    const bool is_good = ip6_prefix >= 1 && ip6_prefix <= kMostBits && is_ip6(ip6_addr);
    return is_good ? get_ip6_prefix_addr(ip6_addr.c_str(), static_cast<unsigned char>(ip6_prefix)) : "";
}

int LanIfaceInfo::setup_ipv6(uint32_t) {
    NM_LOG(Debug) << "Enter";
    if (ip6_type == "STATIC") {
        const int ret = setup_ipv6_static();
        if (ret != NM_OK) {
            NM_LOG(Error) << "Failed to setup IPv6 static!";
            return NM_EXIT(ret);
        }
        return NM_EXIT(setup_ipv6_service(1));
    }
    if (ip6_type == "RELAY") {
        return NM_EXIT(setup_ipv6_relay(1));
    }
    if (ip6_type == "DISABLED") {
        NM_LOG(Debug) << ip6_type << "; do nothing.";
        return NM_EXIT(NM_OK);
    }
    NM_LOG(Error) << ip6_type << " is not supported now!";
    return NM_EXIT(NM_ERR_BAD_TYPE);
}

int LanIfaceInfo::disable_ipv6() {
    NM_LOG(Debug) << "Enter";
    if (ip6_type == "DISABLED") {
        NM_LOG(Debug) << ifname << " does not enable IPv6.";
        return NM_EXIT(NM_OK);
    }
    if (ip6_type == "RELAY") {
        return NM_EXIT(setup_ipv6_relay(0));
    }
    (void)setup_ipv6_service(0);  // logged there; the address goes all the same
    const bool is_announced = !ip6_network().empty();
    if (is_announced) {
        tell_failure(setup_lan_dnsmasq(0, ip6_addr), "Remove dnsmasq listening addr: " + ip6_addr);
    }
    const int ret = ifindex == 0 ? NM_OK : flush_ipv6_addr(static_cast<unsigned int>(ifindex));
    if (del_hosts(ifname, AF_INET6) != NM_OK) {
        NM_LOG(Error) << "Delete hosts failed, interface: " << ifname;
    }
    if (is_announced) {
        withdraw_ipv6();
    }
    return NM_EXIT(ret);
}

int LanIfaceInfo::setup_ipv6_static() {
    NM_LOG(Debug) << "Enter";
    int ret = check_prefix6();
    if (ret == NM_OK && ifindex == 0) {
        NM_LOG(Error) << "Get ifindex failed. Interface: " << ifname;
        ret = NM_ERR_NO_IFACE;
    }
    ret = ret != NM_OK ? ret : set_ip6_address();
    if (ret == NM_OK) {
        announce_ipv6();
    }
    return NM_EXIT(ret);
}

/// The service asks as well: it can be set up alone, and a block without a prefix would be refused with those
/// of all other LANs.
int LanIfaceInfo::check_prefix6() const {
    if (!is_ip6(ip6_addr)) {
        NM_LOG(Error) << "Bad IPv6 address: " << ip6_addr;
        return NM_ERR_BAD_IP;
    }
    if (ip6_network().empty()) {
        NM_LOG(Error) << "Bad prefix.";
        return NM_ERR_BAD_IP;
    }
    return NM_OK;
}

int LanIfaceInfo::set_ip6_address() {
    const auto index = static_cast<unsigned int>(ifindex);
    (void)do_ipv6_forwarding(ifname, 1);  // logged there; a device without the switch refuses the address too
    std::string address = ip6_addr + "/" + std::to_string(ip6_prefix);
    if (nm::has_only_address(index, AF_INET6, address)) {
        NM_LOG(Debug) << "The address is in force. Interface: " << ifname;
        return NM_OK;
    }
    int ret = flush_ipv6_addr(index);
    if (ret != NM_OK) {
        return ret;
    }
    ret = set_ipv6_addr(index, address, RT_SCOPE_UNIVERSE);
    if (ret != NM_OK) {
        NM_LOG(Error) << "set ipv6 address failed. Interface: " << ifname << ", Address: " << address;
    }
    return ret;
}

void LanIfaceInfo::announce_ipv6() {
    const std::string network = ip6_network() + "/" + std::to_string(ip6_prefix);
    if (set_iface_flags(ifname.c_str(), IFF_UP) != NM_OK) {
        NM_LOG(Error) << "Set interface up failed. Interface: " << ifname;
    }
    tell_failure(add_hosts(ip6_addr, ifname), "Add hosts: " + ip6_addr);
    tell_failure(edit_ipset("add", "ip6_localip", ip6_addr), "Add localip: " + ip6_addr);
    tell_failure(edit_ipset("add", "ip6_lan", network), "Add ip6 lan: " + network);
    tell_failure(setup_lan_dnsmasq(1, ip6_addr), "Setup dnsmasq listening addr: " + ip6_addr);
}

void LanIfaceInfo::withdraw_ipv6() {
    const std::string network = ip6_network() + "/" + std::to_string(ip6_prefix);
    tell_failure(edit_ipset("del", "ip6_localip", ip6_addr), "Del ip6 localip: " + ip6_addr);
    tell_failure(edit_ipset("del", "ip6_lan", network), "Del ip6 lan: " + network);
}

/// The unit reads the text as a file of its variables.
int LanIfaceInfo::start_relay(const std::string& device, const char* mode) {
    const std::string env = "UPLINK=" + device + "\nMODE=" + mode;
    const int ret = nm::is_plain(device) ? service_start(nm::kRelay6Unit, ifname.c_str(), env.c_str())
                                         : NM_ERR_BAD_FORMAT;
    if (ret != NM_OK) {
        NM_LOG(Error) << "Enable 6relayd fail. Interface: " << ifname;
    }
    return ret;
}

int LanIfaceInfo::setup_ipv6_relay(int on) {
    NM_LOG(Debug) << "Enter";
    if (on != 1) {
        const int ret = service_stop(nm::kRelay6Unit, ifname.c_str(), nullptr);
        if (ret != NM_OK) {
            NM_LOG(Error) << "Disable 6relayd fail. Interface: " << ifname;
        }
        return NM_EXIT(ret);
    }
    std::string device;
    constexpr int kWanPorts = 1;
    const int ret = get_ifname_by_portname(ip6_uplink, cfg, device, kWanPorts);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Interface: " << ifname << " has no uplink.";
        return NM_EXIT(ret);
    }
    return NM_EXIT(start_relay(device, kRelayAll));
}

int LanIfaceInfo::setup_ipv6_service(int on) {
    NM_LOG(Debug) << "Enter";
    if (!serves_ipv6()) {
        NM_LOG(Debug) << "Skip setup ipv6 service.";
        return NM_EXIT(NM_OK);
    }
    if (on != 1) {
        return NM_EXIT(stop_ipv6_service());
    }
    int ret = start_ipv6_service();
    if (ret == NM_OK && is_file_exists(kBootMarker)) {
        ret = advertise();
    }
    if (ret != NM_OK) {
        (void)stop_ipv6_service();  // logged there; the failure before counts
    }
    return NM_EXIT(ret);
}

int LanIfaceInfo::stop_ipv6_service() {
    const int stopped = dhcpd6_service_stop(ifname);
    int ret = first_failure(stopped, dhcpd6_iface_unset(ifname));
    if (radvd_iface_exist(ifname)) {
        ret = first_failure(ret, radvd_iface_unset(ifname));
        ret = first_failure(ret, nm::refresh_radvd());
    }
    return first_failure(ret, setup_radvd_routerule(0));
}

int LanIfaceInfo::read_service(radvd_iface& advertised, dhcpd6_iface& server) {
    advertised.ifname = server.ifname = ifname;
    advertised.prefix = server.prefix = ip6_network();
    advertised.prefix_len = ip6_prefix;
    server.prefix_len = static_cast<uint8_t>(ip6_prefix);
    advertised.managed = server.managed = ip6_service_type == "STATEFUL";
    advertised.other = ip6_service_type != "SLAAC_RDNSS";
    advertised.dns = vector_into_string(ip6_dns_servers, "", " ");
    // The daemon refuses an option without addresses; the name service listens on that of the LAN.
    server.dns = ip6_dns_servers.empty() ? ip6_addr : vector_into_string(ip6_dns_servers, "", ", ");
    server.range_start = ip6_range_start;
    server.range_end = ip6_range_end;
    int ret = read_seconds(ip6_lifetime, "IP6_LIFETIME", advertised.router_lifetime);
    ret = first_failure(ret, check_router_lifetime(advertised.router_lifetime));
    return first_failure(ret, read_seconds(ip6_lease_time, "IP6_LEASE_TIME", server.lease_time));
}

/// The provider's lifetimes stand in for the configured ones: a client must not keep an address longer than
/// the provider routes its prefix here.
void LanIfaceInfo::take_lifetimes(radvd_iface& advertised) {
    if (!ip6_dhcp_pd || ip6_pd_prefix.empty()) {
        return;
    }
    const Json::Value& port = nm::json_member(nm::json_member(cfg, "WAN_PORT"), ip6_uplink);
    const std::string device = nm::json_string_or(port, "INTERFACE", "");
    const nm::Lifetimes lifetimes = nm::delegated_lifetimes(nm::delegated_prefixes(device), ip6_addr);
    if (lifetimes.valid == 0) {
        return;
    }
    advertised.preferred_lifetime = lifetimes.preferred;
    advertised.valid_lifetime = lifetimes.valid;
    NM_LOG(Info) << "Set AdvPreferredLifetime: " << lifetimes.preferred
                 << "; AdvValidLifetime: " << lifetimes.valid;
}

int LanIfaceInfo::start_dhcpd6(const dhcpd6_iface& server) {
    int ret = dhcpd6_iface_set(&server);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Failed to generate " << ifname << " dhcpd6.conf!";
        return ret;
    }
    ret = dhcpd6_service_start(ifname);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Failed to start " << ifname << " dhcpd6 service!";
    }
    return ret;
}

int LanIfaceInfo::start_ipv6_service() {
    radvd_iface advertised;
    dhcpd6_iface server;
    int ret = check_prefix6();
    ret = ret != NM_OK ? ret : read_service(advertised, server);
    if (ret != NM_OK) {
        return ret;
    }
    take_lifetimes(advertised);
    if (advertised.valid_lifetime != 0) {
        server.lease_time = std::clamp(advertised.valid_lifetime, kShortestLease, kLongestLease);
    }
    if (server.managed && (ret = start_dhcpd6(server)) != NM_OK) {
        return ret;
    }
    ret = radvd_iface_set(&advertised);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Failed to generate " << ifname << " radvd.conf!";
    }
    return ret;
}

int LanIfaceInfo::advertise() {
    const int routed = setup_radvd_routerule(1);
    return first_failure(routed, nm::refresh_radvd());
}

int LanIfaceInfo::resume_ipv6(uint32_t) {
    NM_LOG(Debug) << "Enter";
    if (!serves_ipv6() || !radvd_iface_exist(ifname) || !is_file_exists(kBootMarker)) {
        NM_LOG(Debug) << ifname << " has nothing to resume.";
        return NM_EXIT(NM_OK);
    }
    (void)setup_radvd_routerule(0);  // a relay that runs would keep its old uplink
    return NM_EXIT(advertise());
}

/// The gateway of a static uplink is the configured one, which cannot be reached before its address is there.
bool LanIfaceInfo::find_uplink(available_base_wan_status& uplink) {
    std::vector<available_base_wan_status> wans;
    if (ip6_uplink.empty() || get_available_wan_info(wans, path, 0) != NM_OK) {
        return false;
    }
    for (const available_base_wan_status& wan : wans) {
        const bool is_ready = !wan.ip6.addr.empty() || (wan.ip6.type != "STATIC" && !wan.ip6.gw.empty());
        if (wan.portname == ip6_uplink && wan.ifindex != 0 && is_ready) {
            NM_LOG(Debug) << "Find uplink interface: " << wan.ifname << "; ifindex: " << wan.ifindex
                          << "; IPv6 gateway: " << wan.ip6.gw;
            uplink = wan;
            return true;
        }
    }
    return false;
}

int LanIfaceInfo::setup_radvd_routerule(int on) {
    NM_LOG(Debug) << "Enter";
    available_base_wan_status uplink;
    const bool is_found = on == 1 && find_uplink(uplink);
    const bool is_tied = is_found && !shares_prefix(uplink) && nm::is_downlink_routed(routing_to(uplink));
    if (!is_tied) {
        untie();
    }
    if (on != 1) {
        return NM_EXIT(service_stop(nm::kRelay6Unit, ifname.c_str(), nullptr));
    }
    if (!is_found) {
        NM_LOG(Info) << "Skip setup radvd source route since uplink is not ready.";
        return NM_EXIT(NM_OK);
    }
    const nm::LockGuard lock(uplink.interface);
    if (!lock.held()) {
        note_skip(uplink.interface);
        return NM_EXIT(NM_OK);
    }
    // Whoever had the lock may have changed it, and has waited in vain for this LAN.
    const std::string interface = uplink.interface;
    const bool is_ready = find_uplink(uplink);
    if (!is_ready) {
        untie();
        NM_LOG(Info) << "Skip setup radvd source route since uplink is not ready.";
        return NM_EXIT(NM_OK);
    }
    const int ret = tie_to_uplink(uplink);
    if (ret == NM_OK) {
        (void)nm::note_downlinks(interface, {ifname}, {});  // a static one has no record
    }
    return NM_EXIT(ret);
}

void LanIfaceInfo::untie() {
    if (ifindex != 0) {
        (void)delete_routerule(ifname.c_str(), ifindex, AF_INET6);  // logged there
    }
}

bool LanIfaceInfo::shares_prefix(const available_base_wan_status& uplink) const {
    const std::string upper =
        get_ip6_prefix_addr(uplink.ip6.addr.c_str(), static_cast<unsigned char>(uplink.ip6.prefix));
    const std::string own = ip6_network();
    NM_LOG(Debug) << "Uplink ipv6 prefix: " << upper << ", Downlink ipv6 prefix: " << own;
    return upper == own;
}

/// The record of the uplink's client keeps who was skipped, so that its next report makes up for it.
void LanIfaceInfo::note_skip(const std::string& uplink) {
    NM_LOG(Error) << "Failed to get lock of the uplink interface " << uplink << "; skip.";
    const bool is_noted = nm::note_downlinks(uplink, {}, {ifname}) == NM_OK;
    NM_LOG(Error) << ifname << " has no source route until it or its uplink changes"
                  << (is_noted ? ", or the uplink's client reports." : ".");
}

int LanIfaceInfo::tie_to_uplink(const available_base_wan_status& uplink) {
    if (shares_prefix(uplink)) {
        untie();  // it may have had another prefix than the uplink
        return start_relay(uplink.ifname, kRelayNeighbours);
    }
    return nm::route_downlink(routing_to(uplink));
}

nm::DownlinkRouting LanIfaceInfo::routing_to(const available_base_wan_status& uplink) const {
    return {static_cast<unsigned int>(ifindex),
            static_cast<unsigned int>(uplink.ifindex),
            ip6_addr.c_str(),
            static_cast<unsigned int>(ip6_prefix),
            uplink.ip6.gw.c_str(),
            1};
}

// The addressing side of a LAN interface: its addresses or DHCP client and what hangs on them, how its
// clients are numbered by IPv6, the isolation of guests, and the management alias of the port that
// technicians plug into.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "interfaces/common/BaseIfaceInfo.h"
#include "utils/ip6_prefix.h"

namespace nm {
struct DownlinkRouting;
}

struct dhcpd6_iface;
struct radvd_iface;
struct available_base_wan_status;

#pragma GCC visibility push(default)

/// One LAN interface, an entry of `LAN_IFACE_INFO`. Of the change mask OPT_IP4, OPT_IP6, OPT_IP6_SERVICE and
/// OPT_NO_DHCP_REFRESH are read, and OPT_LINK as "access to the other LANs changed".
///
/// What follows an address (sets, name service, hosts) is tried whatever fails, and only logged: a LAN has to
/// stay usable.
///
/// A LAN has IPv6 of its own ("STATIC"), with an address that its clients' prefix follows from, or that of an
/// uplink ("RELAY"), whose provider numbers the clients. docs/ipv6.md tells how the two come together.
class LanIfaceInfo : public BaseIfaceInfo {
public:
    /// Reads the entry of `ifname` from `cfg`, or from the document at `path` if `cfg` is empty. Throws
    /// NM_ERR_NULL_ARG, NM_ERR_NOT_FOUND, NM_ERR_NO_SECTION, NM_ERR_BAD_FORMAT. The interface may be missing.
    LanIfaceInfo(std::string ifname, std::string path, Json::Value cfg);

    /// setup_info().
    int add_info(uint32_t opt) override;
    /// Disables what the stored configuration has set up of the aspects in `opt`, then setup_info(). The code
    /// of reading the stored configuration, which leaves all as it is, or that of setup_info().
    int alt_info(uint32_t opt) override;
    /// Disables everything. Failures are logged: always 0.
    int del_info(uint32_t opt) override;
    /// Guest isolation, IPv4 with the DHCP server's router, IPv6, in this order; the first failure of an
    /// address family ends it.
    int setup_info(uint32_t opt) override;

    virtual int get_config();
    virtual int get_config_from_json();

    /// Sets up what `IP4_TYPE` names, and in any case the management alias. 0; NM_ERR_BAD_TYPE for another
    /// type; the codes of the two functions below.
    int setup_ipv4(uint32_t opt) override;
    /// Sets the address, brings the interface up, and tells sets, hosts and name service. 0; NM_ERR_BAD_IP
    /// also for a bad prefix; NM_ERR_NO_IFACE; NM_ERR_IOCTL.
    virtual int setup_ipv4_static();
    /// Starts the DHCP client (`on` 1) or stops it, as kill_ipv4_dhcp() with that mode. 0, or NM_ERR_SERVICE.
    virtual int setup_ipv4_dhcp(int on);
    /// Stops the DHCP service, leases included, and removes all that setup_ipv4() does. `opt` is the mode for
    /// a DHCP client. The result is that of removing the addresses, 0 for a missing interface.
    int disable_ipv4(int opt) override;
    /// The second address of the port "swdev8", by which a technician reaches the appliance whatever its
    /// configuration. Other interfaces are left alone: 0. NM_ERR_NO_IFACE, or the code of the alias.
    virtual int setup_mgmt_ip(int on);

    /// Append to and delete from the chain GUESTFORWARD the rules that keep this segment and the other LANs
    /// apart. Rules that are there are not looked for when they are appended, and all copies are deleted. The
    /// exit code for the last rule: for a delete 0 if there was one, 1 if there was none.
    virtual int disable_access_to_local();
    virtual int enable_access_to_local();

    /// Sets up what `IP6_TYPE` names. 0; NM_ERR_BAD_TYPE for another type; the codes of the functions below.
    virtual int setup_ipv6(uint32_t opt);
    /// Removes all that setup_ipv6() does. The result is that of removing the addresses, or of the relay.
    virtual int disable_ipv6();
    /// Replaces the addresses of universe scope by the configured one, brings the interface up, and tells
    /// sets, hosts and name service. 0; NM_ERR_BAD_IP also for a bad prefix; NM_ERR_NO_IFACE; the codes of
    /// flush_ipv6_addr() and set_ipv6_addr().
    virtual int setup_ipv6_static();
    /// Starts (`on` 1) or stops the relay of router advertisements and DHCPv6 between the uplink and the LAN.
    /// 0; NM_ERR_EMPTY without `IP6_UPLINK`; NM_ERR_NO_IFACE for an uplink without a device; the codes of
    /// service_start() and service_stop().
    virtual int setup_ipv6_relay(int on);
    /// Starts (`on` 1) or withdraws what numbers the clients of a LAN with an address of its own: router
    /// advertisements, and with `IP6_SERVICE_TYPE` "STATEFUL" a DHCPv6 server. Other types have none: 0.
    /// While the appliance boots (there is no /var/run/network/.boot_fin), the files are written and the
    /// server is started; advertisements and source routing wait for resume_ipv6(). A start that fails leaves
    /// nothing behind. 0; NM_ERR_BAD_FORMAT for a number that is none; the codes of dhcpd6.h and radvd.h, of
    /// setup_radvd_routerule().
    virtual int setup_ipv6_service(int on);
    /// Makes what the clients send leave by the uplink that their prefix comes from (`on` 1): by NDP proxying
    /// if the LAN shares the uplink's prefix, else by rules and a table of the LAN's own. An uplink that is
    /// not ready, or whose lock cannot be had within ten seconds, is skipped: 0. `on` 0 takes both away. The
    /// codes of service_start(), service_stop() and set_ip6_routerule_by_oifindex().
    virtual int setup_radvd_routerule(int on);
    /// Does anew what follows from the uplink of a LAN that numbers its clients: source routing and
    /// advertisements. For a LAN that was set up during boot or before its uplink; until the boot is over
    /// there is nothing to do. `opt` is not read. 0; the codes of setup_radvd_routerule() and
    /// radvd_service_start().
    int resume_ipv6(uint32_t opt);

protected:
    bool access_to_local = true;
    /// The LAN's network as "address/prefix", empty unless address and prefix are good.
    std::string network;

    std::string ip6_uplink;        // port of the uplink ("PORT1"), empty for none
    std::string ip6_service_type;  // "STATEFUL", "SLAAC_RDNSS" or "DISABLED"
    std::string ip6_range_start;   // addresses that the DHCPv6 server hands out
    std::string ip6_range_end;
    std::string ip6_lifetime;    // of the router, in seconds
    std::string ip6_lease_time;  // of the DHCPv6 server, in seconds
    std::vector<std::string> ip6_dns_servers;
    /// The address lies in the delegated prefix `ip6_pd_prefix`, and `ip6_obj` are its parts.
    bool ip6_dhcp_pd = false;
    std::string ip6_pd_prefix;
    IP6_ADDR_OBJ ip6_obj;

private:
    /// What is only logged: `text` says what was tried, with its value.
    static void tell_failure(int ret, const std::string& text);

    void read_ipv6(const Json::Value& entry);
    bool serves_ipv6() const;
    std::string ip6_network() const;
    int check_prefix6() const;
    int set_ip6_address();
    void announce_ipv6();
    void withdraw_ipv6();
    int read_service(radvd_iface& advertised, dhcpd6_iface& server);
    void take_lifetimes(radvd_iface& advertised);
    int start_ipv6_service();
    int advertise();
    int stop_ipv6_service();
    int start_dhcpd6(const dhcpd6_iface& server);
    bool find_uplink(available_base_wan_status& uplink);
    void note_skip(const std::string& uplink);
    bool shares_prefix(const available_base_wan_status& uplink) const;
    void untie();
    nm::DownlinkRouting routing_to(const available_base_wan_status& uplink) const;
    int tie_to_uplink(const available_base_wan_status& uplink);
    int start_relay(const std::string& device, const char* mode);

    int add_static_address();
    void refresh_dhcp_service();
    void stop_dhcp_service();
    void announce();
    void withdraw();
    int start_mgmt_ip();
    int stop_mgmt_ip();
    int edit_guest_rules(const char* action, int (*run)(const std::string& command));
};

/// Builds the addressing side of `ifname` into `*info` (null on entry, owned by the caller). 0;
/// NM_ERR_NOT_NULL; what the constructor throws.
int create_LAN_INFO(LanIfaceInfo** info, std::string ifname, std::string path, Json::Value cfg);

#pragma GCC visibility pop

namespace nm {

/// The addressing side of a device for the device side to remove; null if the configuration has none.
std::unique_ptr<LanIfaceInfo> lan_info_of(const std::string& ifname, const std::string& path,
                                          const Json::Value& cfg);

}  // namespace nm

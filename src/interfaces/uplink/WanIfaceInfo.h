// The addressing side of a WAN port: what it does beyond other uplinks, which is its IPv6 side above all.
//
// LANs may have their IPv6 from a WAN port, as its downlinks. While that side of the port changes, the locks
// of its downlinks are held as well, after the port's own, so that no LAN follows a state that is going. A
// downlink whose lock cannot be had in ten seconds is left as it is, until the next change of either.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "config/downlinks.h"
#include "interfaces/uplink/UplinkIfaceInfo.h"

struct dhcpcd_iface;
namespace nm {
class DownlinkLocks;
}

#pragma GCC visibility push(default)

/// A downlink whose lock is held, with the descriptor of the lock.
struct downlink_lock_info : ipv6_downlink {
    int lock_fd = -1;
};

/// Addressing of one WAN interface during one setup call. What a WAN port does as other uplinks do is in
/// UplinkIfaceInfo.
class WanIfaceInfo : public UplinkIfaceInfo {
public:
    /// Throws as BaseWanIfaceInfo does. A port without an `IP6_TYPE` has the type "DISABLED".
    WanIfaceInfo(std::string ifname, std::string path, Json::Value cfg);

    /// "DISABLED" and "PPPOEV6" need nothing here: the IPv6 of a session belongs to the session. 0, or the
    /// code of setup_ipv6_static(), of setup_ipv6_dhcpcd() with all other types.
    int setup_ipv6(uint32_t opt) override;
    /// Removes addresses, routes, rules, set members, host names and the downlinks' relays, and tells the
    /// overlay; `mode` goes to setup_ipv6_dhcpcd(). Goes on after a failure; the first one of the client and
    /// of the kernel is the result. "PPPOEV6" stops the session, with its code.
    int disable_ipv6(int mode) override;
    /// 0; NM_ERR_BAD_IP for a bad prefix, or for text that is not an address that a device can have;
    /// NM_ERR_NO_IFACE; NM_ERR_BAD_TYPE; the code of setting the address. What follows the address is set up
    /// whatever fails; the result is the first failure of writing its rules and routes.
    int setup_ipv6_static();
    /// 1 starts the client for DHCPv6 and router advertisements, which reports by Lease6_event() what it is
    /// given; any other value stops it. A start that fails leaves neither record nor block behind. 0;
    /// NM_ERR_BAD_TYPE for "STATIC"; the codes of kernel/address_ipv6.h and services/dhcpcd/nm_dhcpcd.h.
    int setup_ipv6_dhcpcd(int mode);
    /// Locks the downlinks of this port one after the other, each under its interface's name, and appends
    /// those that it got. The caller gives each back with unlock_ex(); see nm::DownlinkLocks.
    void get_ipv6_downlink_lock(std::vector<downlink_lock_info>& locks);
    /// The interfaces of the downlinks whose locks it did not get the last time.
    const std::vector<std::string>& skipped_downlinks() const { return skipped_; }

    /// What the client was given has changed: "add" sets the device and its downlinks up with the address of
    /// the record in the place of the one before, "del" takes that one away. 0; NM_ERR_BAD_ACT;
    /// NM_ERR_NO_IFACE; the code of reading the record, NM_ERR_EMPTY for an "add" without an address; the
    /// first failure of the kernel.
    int dhcp6_source_route_cb(std::string act);

    /// The record of the port (services/leases/ipv6_record.h): reads it; with `mode` 1 makes it anew without
    /// a lease, with 2 removes it. What the device has in force stays in a new record.
    int get_ipv6_info(Json::Value& info);
    int set_ipv6_info(int mode);
    /// The lease of a record: what of it there is. 0, or NM_ERR_EMPTY without an address.
    int cast_ipv6_info_to_dhcp6_info(Json::Value info, DHCP6_INFO& lease);

    /// The client of "PPPOEV6", and all that hangs on it, on a session that has come (1) or goes (0); nothing
    /// with any other type. Codes as above.
    int setup_session_ipv6(int mode) override;

    int setup_tun6(int mode) override;
    /// As setup_ipsec(), for the IPv6 address that the caller gives. The tunnel's address is that of IPv4.
    int setup_ipsec6(int mode, std::string address);
    /// setup_link_daemon() for the unit "nm-mlmd@".
    int setup_mlmd(int mode);

protected:
    void register_uplink(bool comes) override;

private:
    int check_static6();
    int write_static_address6();
    DHCP6_INFO static_lease() const;
    bool has_static6();
    bool is_routed6(const DHCP6_INFO& lease);
    int clear_routes6();
    int clear_kernel6();
    int set_up_lease(const DHCP6_INFO& lease, const nm::DownlinkLocks& downlinks, bool is_new);
    int write_routes6(const DHCP6_INFO& lease);
    void attach(const downlink_lock_info& downlink, const DHCP6_INFO& lease, bool is_new);
    void run_relay(const downlink_lock_info& downlink, const char* mode, bool is_new);
    void unroute(const downlink_lock_info& downlink);
    void detach(const nm::DownlinkLocks& downlinks);
    int take_down_ipv6(int mode);
    int remove_addresses6();
    std::set<std::string> addresses_in_sets6();
    void take_down_overlays6();
    int start_client();
    int stop_client();
    int prepare_link();
    dhcpcd_iface describe_client();
    void leave_without_address(const DHCP6_INFO& lease, bool has_delegation,
                               const nm::DownlinkLocks& downlinks);
    int replace_lease(const Json::Value& info, const DHCP6_INFO& lease, const nm::DownlinkLocks& downlinks);
    int follow_up(const Json::Value& info, const DHCP6_INFO& lease);
    void lock_downlinks(const std::function<bool(const std::string& lan)>& is_wanted,
                        std::vector<downlink_lock_info>& locks);
    int note_followers(const Json::Value& info, const nm::DownlinkLocks& downlinks);

    std::vector<std::string> skipped_;
};

/// Builds the addressing side of `ifname` into `*info`, null on entry and owned by the caller, from `cfg`, or
/// from the document at `path` if `cfg` is empty. 0; NM_ERR_NOT_NULL; NM_ERR_NULL_ARG; NM_ERR_NO_SECTION;
/// NM_ERR_NO_IFACE if no WAN port has the interface; NM_ERR_NOT_FOUND; NM_ERR_BAD_FORMAT.
int create_WAN_INFO(WanIfaceInfo** info, std::string ifname, std::string path, Json::Value cfg);

/// Rebuilds the tunnels of all WAN interfaces of the stored document: bit 0x2 of `op` tears them down, bit
/// 0x1 sets them up, any other value changes nothing. A lease that cannot be read is only logged; a port
/// whose session cannot be asked for is left alone, and the walk goes on. 0, or the last failure:
/// NM_ERR_NOT_FOUND, NM_ERR_PARSE, NM_ERR_NO_KEY or NM_ERR_NO_SUBKEY for the document; the code of
/// create_WAN_INFO(); a code of vpppoe.h less 1702.
int edit_tunnels(int op);

/// 1 if the link of the interface is up, else 0. `act` may carry the state as given by a caller (bit 29: it
/// is given, bit 28: it is up); otherwise is_interface_link_up() is asked.
int check_iface_link_up(WanIfaceInfo* info, unsigned int act);

#pragma GCC visibility pop

// The addressing of an uplink: its life cycle, its IPv4 side, its PPPoE session, and what the overlay's
// services learn of it. Private ports and RGLinks do most of it as WAN ports do. What differs is a row of
// UplinkKind or an operation that a kind overrides.
//
// Operations take no lock: whoever builds the object holds the lock of its name. A failure after the address
// is set is logged and passed over, and no overlay service undoes or ends anything: an uplink comes up as far
// as it can.
#pragma once

#include <json/value.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "interfaces/common/BaseInterface.h"
#include "interfaces/uplink/BaseWanIfaceInfo.h"
#include "interfaces/uplink/UplinkKind.h"

#pragma GCC visibility push(default)

class UplinkIfaceInfo : public BaseWanIfaceInfo {
public:
    /// Throws as BaseWanIfaceInfo does. `kind` outlives the object.
    UplinkIfaceInfo(const UplinkKind& kind, std::string ifname, std::string path, Json::Value cfg);

    /// Registers the uplink and sets it up. The result is that of the setup.
    int add_info(uint32_t opt) override;
    /// Takes down what the stored document says and `opt` names, then sets up this state. The link settings
    /// of a PPPoE port, before or after, take all of it down, where the kind has sessions. The result is that
    /// of the setup, or the code of building the stored state.
    int alt_info(uint32_t opt) override;
    /// Takes everything down, whatever fails. The result is that of disable_ipv4(): a failure of the IPv6
    /// side is only logged.
    int del_info(uint32_t opt) override;

    /// What the client for dynamic addresses, or the dialler, calls with a lease that comes ("add") or goes
    /// ("del"). The overlay is told in any case; the result is that of set_dhcp_source_route().
    int dhcp_source_route_cb(DHCP_INFO& info, std::string& act) override;
    /// Empties the table and rules of the uplink and, on "add", fills them from the lease. 0;
    /// NM_ERR_BAD_ACT; NM_ERR_NO_IFACE; NM_ERR_EMPTY for a lease without address, netmask or gateway; the
    /// first failure of kernel/uplink_routing.h.
    int set_dhcp_source_route(DHCP_INFO& info, std::string& act);

    /// Removes addresses, routes, rules, set members and host names, and tells the overlay. `mode` is that of
    /// setup_ipv4_dhcp(). Goes on after a failure; the first one is the result. Peers and sets do not count.
    int disable_ipv4(int mode) override;
    /// 0; NM_ERR_BAD_TYPE for a type that the kind does not have; the code of the type's setup.
    int setup_ipv4(uint32_t opt) override;
    /// 0; NM_ERR_SERVICE if the client does not start; the code of kill_ipv4_dhcp().
    int setup_ipv4_dhcp(int mode) override;
    /// 0; NM_ERR_BAD_IP for a bad prefix, or for text that is not an address that a device can have;
    /// NM_ERR_NO_IFACE; the code of setting the address. What follows the address is set up whatever fails;
    /// the result is the first failure of writing its rules and routes.
    int setup_ipv4_static() override;

    /// NM_ERR_EMPTY without a user name; else setup_pppoe_service(1).
    int setup_pppoe(uint32_t opt) override;
    /// 1 stores the session's configuration and dials, 0 stops the session and removes what belongs to it. 0;
    /// NM_ERR_BAD_TYPE for stopping what is not a PPPoE port; a code of vpppoe.h less 1702. A stop goes on
    /// after a failure; the first one is the result.
    int setup_pppoe_service(int mode);

    /// Ends a session that an earlier configuration has left on a port of another type, and removes what
    /// belongs to the session alone; the port's own addressing stays. 0, also without such a session; codes
    /// as those of a stop.
    int end_left_over_session();

    /// The IPv6 side; nothing on kinds without one. `mode` 2 says that a dynamic type follows.
    virtual int disable_ipv6(int mode);
    /// The IPv6 of a session, when it has come (1) or goes (0).
    virtual int setup_session_ipv6(int mode);

    /// The overlay's services: `mode` 1 sets up, any other value tears down. 0; NM_ERR_BAD_TYPE;
    /// NM_ERR_BAD_IP for a gateway or address that is none; NM_ERR_NO_IFACE if the device side cannot be
    /// built or has no rate; the code of the call; NM_ERR_PARSE; else the service's own error,
    /// NM_ERR_BAD_ACT for a reply without one. "STATIC" takes the configured gateway or address in the place
    /// of the argument.
    ///
    /// The tunnel's end, with the inspection of its traffic and the link daemon behind it. A device without
    /// an id has no tunnels: 0.
    int setup_tun(int mode);
    /// The same for IPv6, without the daemon; nothing on kinds without IPv6.
    virtual int setup_tun6(int mode);
    /// The monitor of the link `name`, which is given the rate of the port.
    int setup_wan_monitor(int mode, std::string name, std::string gateway);
    /// The local site of the IPsec service. Its result is not looked into.
    virtual int setup_ipsec(int mode, std::string address);
    /// The daemon of the link, a unit that is given where the configuration lies. 0 or the unit's code;
    /// NM_ERR_BAD_FORMAT for a path that no unit can be given.
    int setup_link_daemon(int mode);

    /// Adds or removes (`action` "add", "del") the uplink's address `ip` in the sets that the rule sets match
    /// on: localip, the appliance's addresses, and WANIFSET, addresses with the interface that they belong
    /// to. 0, also without an address; the first failure of edit_ipset().
    int setup_ipset(const std::string& action, const std::string& ip);
    /// The same for an IPv6 address and the set ip6_localip, by edit_ip6_ipset().
    int setup_ip6_ipset(const std::string& action, const std::string& ip);

    /// Adds or removes the configured name servers as those of the interface that the traffic runs on.
    int add_dns4();
    int del_dns4();

    /// The priority of the port among the uplinks; 1 with NM_ERR_NO_IFACE if its device side cannot be built.
    int get_interface_prio(uint32_t& prio);

    /// The device side of the port, null with the failure logged if it cannot be built.
    std::unique_ptr<UplinkInterface> get_interface();

protected:
    /// Tells the health manager that the uplink comes or goes. Nothing depends on what it answers.
    virtual void register_uplink(bool comes) = 0;
    /// One call to the health manager. 0 or the code of the call.
    int tell_health_manager(const char* method, const Json::Value& request);
    /// Starts the session of setup_pppoe_service(): stores its configuration and dials.
    virtual int start_pppoe();

    /// One call to the overlay for a tunnel's end; `label` names it in the log and `prefix` begins the name
    /// of its device. With 0 a tunnel was set up or torn down, and `has_tunnel` says whether there is one at
    /// all.
    int request_tunnel(int mode, const char* method, const char* label, bool& has_tunnel);
    /// Traffic inspection of a device that is the uplink's.
    void inspect_traffic(int mode, std::string device);
    /// Traffic inspection of the tunnel, whose name begins with `prefix` and follows from the port's.
    void inspect_tunnel(int mode, const std::string& prefix);
    /// One call to the IPsec service about the local site of `address`, under the key `key`.
    int edit_local_site(int mode, const char* method, const char* key, const std::string& address);

    void set_up_overlays(int mode, const std::string& address, const std::string& gateway);
    /// Whoever follows the addresses of uplinks learns that this one came or went.
    virtual void tell_peers(const std::string& address, int prefix);
    virtual void forget_at_peers();
    void take_down_overlays();

    /// The halves of disable_ipv4(): for a port without and with a session.
    int disable_ip(int mode);
    int disable_session();
    int remove_hosts();

    const UplinkKind& kind;

private:
    bool has_session() const;
    int bring_up(uint32_t opt);
    int setup_ipv4_session(uint32_t opt);
    int choose_gateway(std::string& gateway);
    int describe_link(const std::string& gateway, Json::Value& request);
    int remove_addresses();
    std::set<std::string> addresses_in_sets();
    int write_static_address();
    int write_static_routes();
    bool is_routed4(const char* address, int prefix, const char* gateway) const;
    int write_dhcp_routes(const DHCP_INFO& info);
    int write_stop_flag();
    int stop_pppoe();
    int end_session();
    int remove_session_config();
    void take_stored_down(UplinkIfaceInfo& stored, uint32_t opt);
};

#pragma GCC visibility pop

// The addressing side of a LAN interface: its address or DHCP client and what hangs on that, the isolation of
// guests, and the management alias of the port that technicians plug into.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <memory>
#include <string>

#include "interfaces/common/BaseIfaceInfo.h"

#pragma GCC visibility push(default)

/// One LAN interface, an entry of `LAN_IFACE_INFO`. Of the change mask OPT_IP4, OPT_IP6, OPT_IP6_SERVICE and
/// OPT_NO_DHCP_REFRESH are read, and OPT_LINK as "access to the other LANs changed".
///
/// What follows an address (sets, name service, hosts) is tried whatever fails, and only logged: a LAN has to
/// stay usable. Of IPv6 this release knows "DISABLED" alone.
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

    /// NM_ERR_BAD_TYPE for a type other than "DISABLED", which has nothing to set up.
    virtual int setup_ipv6(uint32_t opt);
    /// The address service apart from the address: NM_ERR_BAD_TYPE to start it (`on` 1) beneath any other
    /// type; there is none to stop.
    virtual int setup_ipv6_service(int on);
    /// Always 0: nothing of IPv6 was ever set up.
    virtual int disable_ipv6();

protected:
    bool access_to_local = true;
    /// The LAN's network as "address/prefix", empty unless address and prefix are good.
    std::string network;

private:
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

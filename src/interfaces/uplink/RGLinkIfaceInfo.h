// The addressing side of an RGLink: static addresses, DHCP or PPPoE towards a domain link.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

#include "interfaces/uplink/UplinkIfaceInfo.h"

#pragma GCC visibility push(default)

/// Addressing of one RGLink during one setup call. What an RGLink does as other uplinks do is in
/// UplinkIfaceInfo.
class RGLinkIfaceInfo : public UplinkIfaceInfo {
public:
    /// Throws as BaseWanIfaceInfo does.
    RGLinkIfaceInfo(std::string ifname, std::string path, Json::Value cfg);

    int disable_ipv4(int mode) override;
    /// There is no IPv6 on these links: always 0.
    int setup_ipv6(uint32_t opt) override;

    /// Tells the health manager the address in force (`on` 1), or that there is none any more. 0;
    /// NM_ERR_BAD_TYPE for a type without addresses, in which case nothing is reported; the code of reading
    /// the lease or the session, or its netmask; the code of the call.
    int update_ip_info(int on);
    /// setup_link_daemon() for the unit "nm-dlmd@".
    int setup_dlmd(int on);

protected:
    void register_uplink(bool comes) override;
    void tell_peers(const std::string& address, int prefix) override;
    void forget_at_peers() override;
    /// Dials a session whose configuration is there already as it is.
    int start_pppoe() override;

private:
    int read_address(std::string& address, int& prefix);
    int report_address(const std::string& address, int prefix);
};

/// Builds the addressing side of `ifname` into `*info` as create_WAN_INFO() does for a WAN port.
int create_RGLINK_INFO(RGLinkIfaceInfo** info, std::string ifname, std::string path, Json::Value cfg);

/// edit_tunnels() for RGLinks.
int edit_rglink_tunnels(int op);

/// update_ip_info(1) for each RGLink of the document at `path`; one that cannot be built is logged. 0; the
/// code of reading the document or its section; else the last failure.
int update_rglink_info(std::string path);

#pragma GCC visibility pop

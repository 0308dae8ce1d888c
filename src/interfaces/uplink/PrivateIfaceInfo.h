// The addressing side of a private port: a static address on a private circuit, and nothing else.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

#include "interfaces/uplink/UplinkIfaceInfo.h"

#pragma GCC visibility push(default)

/// Addressing of one private interface during one setup call. What a private port does as other uplinks do is
/// in UplinkIfaceInfo.
class PrivateIfaceInfo : public UplinkIfaceInfo {
public:
    /// Throws as BaseWanIfaceInfo does.
    PrivateIfaceInfo(std::string ifname, std::string path, Json::Value cfg);

    /// A circuit has static addresses of IPv4 only, and no site of IPsec: nothing is done. Always 0.
    int setup_ipv4_dhcp(int) override { return 0; }
    int setup_pppoe(uint32_t) override { return 0; }
    int setup_ipv6(uint32_t) override { return 0; }
    int setup_ipsec(int, std::string) override { return 0; }

    /// Tells the health manager all about the port, which comes (`on` not 0) or goes. 0; NM_ERR_NO_IFACE if
    /// its device side cannot be built, in which case nothing is reported; the code of the call.
    int setup_hmgr(int on);
    /// setup_wan_monitor() for the port's own gateway.
    int setup_private_monitor(int on);
    /// setup_link_daemon() for the unit "nm-plmd@".
    int setup_plmd(int on);

protected:
    void register_uplink(bool comes) override;
};

/// Builds the addressing side of `ifname` into `*info` as create_WAN_INFO() does for a WAN port.
int create_PRIVATE_INFO(PrivateIfaceInfo** info, std::string ifname, std::string path, Json::Value cfg);

/// edit_tunnels() for private ports.
int edit_private_tunnels(int op);

#pragma GCC visibility pop

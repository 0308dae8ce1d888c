// The addressing side of a WAN port: static addresses, DHCP or PPPoE, source routing, and the overlay.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

#include "interfaces/uplink/UplinkIfaceInfo.h"

#pragma GCC visibility push(default)

/// Addressing of one WAN interface during one setup call. What a WAN port does as other uplinks do is in
/// UplinkIfaceInfo.
class WanIfaceInfo : public UplinkIfaceInfo {
public:
    /// Throws as BaseWanIfaceInfo does.
    WanIfaceInfo(std::string ifname, std::string path, Json::Value cfg);

    /// The types "DISABLED" and "PPPOEV6" need nothing here: the IPv6 of a session belongs to the session.
    /// All others are not served by this release: NM_ERR_BAD_TYPE.
    int setup_ipv6(uint32_t opt) override;
    /// Stops the session of "PPPOEV6" (its code); nothing to undo with the other types: 0.
    int disable_ipv6(int mode) override;

    int setup_tun6(int mode) override;
    /// As setup_ipsec(), for the IPv6 address that the caller gives. The tunnel's address is that of IPv4.
    int setup_ipsec6(int mode, std::string address);
    /// setup_link_daemon() for the unit "nm-mlmd@".
    int setup_mlmd(int mode);

protected:
    void register_uplink(bool comes) override;
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

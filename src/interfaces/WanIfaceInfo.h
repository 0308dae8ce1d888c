// The addressing side of a WAN port, as far as the device side has to know it.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

#pragma GCC visibility push(default)

/// Addressing of one WAN interface during one setup call.
class WanIfaceInfo {
public:
    virtual ~WanIfaceInfo() = default;

    /// Removes all addressing of the interface. The result is that of the IPv4 side.
    virtual int del_info(uint32_t opt) = 0;

    std::string get_ifname() { return ifname; }
    /// "DHCP", "STATIC", "PPPOE" or "DISABLED".
    std::string get_ip4_type() { return ip4_type; }
    /// "ethernet" or "virtio".
    std::string get_dev_type() { return dev_type; }

protected:
    std::string ifname;
    std::string ip4_type;
    std::string dev_type;
};

/// Builds the addressing side of `ifname` into `*info`, null on entry. This release sets up devices only, so
/// the result is NM_ERR_BAD_TYPE and `*info` stays null, which every owner allows for; NM_ERR_NOT_NULL.
int create_WAN_INFO(WanIfaceInfo** info, std::string ifname, std::string path, Json::Value cfg);

/// 1 if the link of the interface is up, else 0. `act` may carry the state as told by a caller (bit 29: it is
/// told, bit 28: it is up); otherwise is_interface_link_up() is asked.
int check_iface_link_up(WanIfaceInfo* info, unsigned int act);

#pragma GCC visibility pop

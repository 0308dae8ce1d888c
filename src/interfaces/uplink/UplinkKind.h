// The kinds of uplinks. What they do alike is in UplinkInterface.h, the device side, and UplinkIfaceInfo.h,
// the addressing side; a kind is a row here and the few operations that its classes override.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#pragma GCC visibility push(default)

class UplinkIfaceInfo;
class UplinkInterface;

/// The words and numbers in which the kinds differ, and how the objects of their two sides are made.
struct UplinkKind {
    int type;                   ///< KIND_WAN, ...
    const char* ports;          ///< section of its devices
    const char* infos;          ///< section of its addressing
    uint32_t ip4_mask;          ///< which bits of a change mask run setup_ipv4(),
    uint32_t ip6_mask;          ///< setup_ipv6()
    uint32_t pppoe_mask;        ///< and, without the first, setup_pppoe()
    const char* device_class;   ///< class of the device side, for the log
    const char* info_class;     ///< class of the addressing side, for the log
    const char* add_failed;     ///< begins the line that says that add_info() failed
    int mark;                   ///< whether firewall marks assign packets to it: `mark` of set_ip4_rule()
    bool dials_by_mask;         ///< whether setup_info() dials its sessions, where the mask says so; a kind
                                ///< without this dials them past it, whatever changed
    const char* dial_failed;    ///< begins the line that says that a session was not dialled
    const char* tunnel_method;  ///< method of the overlay service that sets up its tunnel
    const char* monitor_type;   ///< `type` for the link monitor, which then is given all of the link on its
                                ///< removal too; null for a kind that it knows by `id`
    const char* link_daemon;    ///< its daemon "mlmd" runs as the unit "nm-mlmd@"
    bool daemon_log_is_brief;   ///< whether the lines about that daemon leave the interface out
    std::vector<std::string> ip4_types;     ///< what `IP4_TYPE` may be
    std::vector<std::string> tunnel_types;  ///< with which of them there is a tunnel

    /// The factories of its classes: null with the factory's code in `ret` on failure.
    std::unique_ptr<UplinkInterface> (*make_device)(const std::string& portname, const std::string& path,
                                                    Json::Value cfg, int& ret);
    std::unique_ptr<UplinkIfaceInfo> (*make_info)(const std::string& ifname, const std::string& path,
                                                  Json::Value cfg, int& ret);

    bool takes(const std::string& ip4_type) const;
    bool has_tunnel(const std::string& ip4_type) const;
};

#pragma GCC visibility pop

namespace nm {

/// The row of a kind, null for a number other than KIND_WAN, KIND_PRIVATE and KIND_RGLINK.
const UplinkKind* find_uplink_kind(int type);

/// The same for one of those numbers.
const UplinkKind& uplink_kind(int type);

}  // namespace nm

// 802.1Q devices: creating and deleting them, and their egress priorities.
//
// A VLAN device is always called "<parent>.<vid>" with the decimal VID, which is the kernel's own choice
// unless a name type with zeros or without the parent was set in this network namespace.
//
// The first three functions ask the kernel (SIOCSIFVLAN; linux/if_vlan.h) and tell failures on standard
// error; a kernel without 802.1Q is warned about there and asked nevertheless. Codes: NM_ERR_VLAN_ARG for
// null and for numbers out of range; NM_ERR_VLAN_NAME for a name of 17 characters and more (one of 16 fits
// the request, and the kernel decides); NM_ERR_VLAN_SOCKET; NM_ERR_VLAN_IOCTL if the kernel refuses.
#pragma once

#include <json/value.h>

#include <string>

#pragma GCC visibility push(default)

/// Creates "<ifname>.<vid>", which stays down. The VID is 1 to 4095 here; 4095 is left to the kernel, which
/// has it reserved (IEEE 802.1Q). Success with VID 1 gives a warning on standard error: many switches
/// keep it for themselves.
int add_vlan(const char* ifname, unsigned short vid);

/// Deletes a VLAN device; the kernel refuses any other.
int del_vlan(const char* vlan_ifname);

/// Frames of this socket priority leave with the 802.1p priority `qos` (0 to 7); a priority that is not
/// mapped leaves with 0.
int edit_vlan_egress_prio(const char* vlan_ifname, unsigned short qos, unsigned int skb_prio);

/// add_vlan(), then brings the device up. If that fails its code is the result, and the device stays.
int add_vlanif(const char* ifname, unsigned short vid);

/// del_vlan() and edit_vlan_egress_prio() with a line in the log on failure.
int del_vlanif(const char* vlan_ifname);
int edit_vlanif_prio(const char* vlan_ifname, unsigned short qos, unsigned int skb_prio);

/// 1 for a VLAN device, 0 for another and for none. NM_ERR_NL_ARG for null; NM_ERR_NL_SOCKET,
/// NM_ERR_NL_CONNECT; NM_ERR_NOMEM if the link table can't be read.
int is_vlan_interface(const char* ifname);

/// The bridge device of a VLAN segment: `INTERFACE` of that member of `VLAN_SEG` in the device
/// configuration. Empty if there is none.
std::string get_vlan_ifname(const Json::Value& config, std::string seg);

#pragma GCC visibility pop

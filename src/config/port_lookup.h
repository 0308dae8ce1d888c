// Lookups between the names of the system: logical port, kernel interface, physical interface, port role
// and interface kind. All of them walk the stored documents; none caches anything.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#pragma GCC visibility push(default)

/// `HW_PORT` or `INTERFACE` of a port in hw_port_info.json; "NONE" if the port or the file is not there.
std::string find_hw_port(std::string port);
std::string find_interface_from_hwport_config(std::string port);

/// Renames every physical interface of hw_port_info.json to its `INTERFACE` and brings it up. 0, or the code
/// of the rename that failed, which ends the walk. `argv` is not used.
int set_hw_port(const char* const* argv);

/// The role of a port, "WAN", "PRIVATE", "RGLINK" or "LAN", by the section that holds it. 0, or -1 if none
/// does. The second form reads the document at `path`.
int get_port_role(std::string port, Json::Value& root, std::string& role);
int get_port_role(std::string port, std::string path, std::string& role);

/// The kind of an interface by the section that holds it, a number of ifacetype_map; 0 ("NONE") if none
/// does. The second form reads the document at `path`.
int get_ifacetype_by_ifname(std::string ifname, Json::Value& root);
int get_ifacetype_by_ifname(std::string ifname, std::string path);

/// The WAN or LAN port whose `INTERFACE` is `ifname`; a PPPoE name ("ppp-eth0") stands for the device
/// beneath it. 0 or NM_ERR_NO_IFACE; the second form also fails as json_file_to_mem() does.
int get_portname_by_ifname(std::string ifname, Json::Value root, std::string& port);
int get_portname_by_ifname(std::string ifname, std::string path, std::string& port);

/// The interface that a port's traffic runs on: its `INTERFACE`, with "ppp-" before it where a WAN or RGLink
/// port runs PPPoE. `mode` restricts the search: 1 WAN, 2 LAN, 4 private, 5 RGLink; 0 searches WAN, private,
/// RGLink and LAN ports in this order. 0; NM_ERR_EMPTY for an empty port; NM_ERR_NO_IFACE.
int get_ifname_by_portname(std::string port, Json::Value root, std::string& ifname, int mode);
int get_ifname_by_portname(std::string port, std::string path, std::string& ifname, int mode);

/// The same name as a text, for callers that look up many ports of one document; empty if there is none.
std::string get_ifname(const Json::Value& device, const std::string& port, int mode);

/// All pairs of port and interface of one kind, 1 (WAN) or 4 (LAN) of ifacetype_map, named as by
/// get_ifname_by_portname(). 0; NM_ERR_BAD_TYPE; NM_ERR_NO_KEY for an absent section; or the code of
/// reading `path`.
int get_portname_ifname_pair_list_by_path(std::map<std::string, std::string>& out, std::string path,
                                          int type);

/// A member's value into `out`. 0; NM_ERR_NO_KEY for an empty document; NM_ERR_NO_SUBKEY for a missing
/// section; NM_ERR_NO_VALUE for a missing key.
int get_key_value(Json::Value& root, const char* section, const char* key, Json::Value& out);

/// What json_key_foreach_value_do() calls: the member's key, and the caller's own pointer.
typedef int (*cb_func)(std::string key, void* data);

/// Calls `callback` for each member of `section`, in key order. With `flag` the walk stops at the first
/// failure, without it all members are visited; the result is the last failure, or 0. Results of
/// get_key_list() for a section that is not there. The second form reads the document at `path`.
int json_key_foreach_value_do(Json::Value& root, std::string section, bool flag, cb_func callback,
                              void* data);
int json_key_foreach_value_do(std::string path, std::string section, bool flag, cb_func callback, void* data);

/// The id of the WAN interface whose name is found in `ifname`, from the document at `path`. 0 or
/// NM_ERR_NO_IFACE.
int get_id_by_wan_ifname(std::string ifname, uint8_t& id, std::string path);

#pragma GCC visibility pop

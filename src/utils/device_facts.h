// What this appliance's devices are and have: names, speeds, sizes, positions, and their helper scripts.
#pragma once

#include <string>
#include <vector>

#pragma GCC visibility push(default)

/// The port number in an interface name: from character 9 if it contains "ppp-", else from character 5
/// ("swdev4" and "ppp-swdev4" give 4). 0 if there is none there.
int get_port_num(const char* ifname);

/// 1 if the speed in Mb/s is one that Ethernet has, else -1.
int check_speed_format(int speed);

/// The list without the secondary wireless devices: names that contain "wlan" and a number from 1 to 99.
std::vector<std::string> remove_invalid_wlan(std::vector<std::string> ifnames);

/// The largest MTU of the device in bytes, as the hardware description has it. -1 if it has none;
/// NM_ERR_OPEN if there is no description; NM_ERR_NOT_A_NUMBER; NM_ERR_BAD_FORMAT for a name that no
/// command can take; NM_ERR_SERVICE if the query can't be run; NM_ERR_NULL_ARG.
int get_eth_max_mtu(char* ifname);

/// For names that begin with "eth": state "down" creates the marker file /tmp/.<ifname>, state "up"
/// deletes it; other names and states do nothing. 0, NM_ERR_NULL_ARG, or NM_ERR_OPEN if the marker can't
/// be made.
int vorn_skip_watchdog(const char* ifname, const char* state);

/// Sets up (`on`) or removes the administration interface of the models that have one. The script's exit
/// code, 0 for other models; NM_ERR_SERVICE if the model can't be asked for.
int setup_mastin200_client(unsigned int on);

/// The interface at a PCI position: the first whose device path contains `bus_path`; with an empty
/// `bus_path` the first that hangs on bus `hex_bus` at the function whose last digit is `port`. Empty if
/// there is none.
std::string hex_dev_bus_find_ifname(std::string hex_bus, std::string port, std::string bus_path);

/// Switches packet inspection on the interface; `role` is 0 unknown, 1 WAN, 2 LAN, 3 other. The script's
/// exit code; NM_ERR_BAD_ACT for another role, NM_ERR_BAD_FORMAT for a name that no command can take.
int setup_dpi(int enable, int role, std::string& ifname);

#pragma GCC visibility pop

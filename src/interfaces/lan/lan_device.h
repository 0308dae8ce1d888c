// Steps that the devices of the LAN side share: trunks, VLAN devices and bridges.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

namespace nm {

bool device_exists(const std::string& ifname);

/// Brings the device up and takes it out of multipath routing. Failures are logged only: a LAN comes up as
/// far as it can.
void bring_up_lan_device(const std::string& ifname);

/// Brings up the device beneath VLAN devices, none of which can be up without it. As above.
void bring_up_trunk(const std::string& ifname);

/// Makes the device of VLAN `vid` on a trunk unless it is there. It begins with the trunk's address and is
/// given one of its own, also if a call that was interrupted left it without. What fails is logged; a device
/// that could not be made is found missing later, so that the code is that of giving the address.
int make_vlan_device(const std::string& trunk, int vid);

/// Reads and sets an MTU; `word` says in the log what kind of device it is. Codes of get_if_mtu() and
/// set_if_mtu().
int read_mtu(const std::string& word, const std::string& ifname, int& mtu);
int write_mtu(const std::string& word, const std::string& ifname, int mtu);

/// Switches packet inspection on a LAN device.
void inspect_lan_device(bool on, std::string ifname);

/// The device of VLAN `vid` on a trunk, which is the trunk itself for VID 0, and the bridge of that VLAN.
std::string vlan_device(const std::string& trunk, int vid);
std::string vlan_bridge(int vid);

/// The trunk beneath a VLAN device's name; empty for a name of any other form.
std::string trunk_of(const std::string& ifname);

/// The VLAN ids of a `VLANS` list in its order, each once. Entries that are no number, and those of 4096 and
/// above, are dropped.
std::vector<int> vlan_ids(const Json::Value& list);

}  // namespace nm

// Is a device up? What sysfs says about carrier and operational state, and waiting for it.
#pragma once

#include <string>

#pragma GCC visibility push(default)

/// Parent of a switch-port VLAN device: for a name that holds "swdev" the text from there up to the first
/// "." ("swdev3.100" gives "swdev3"), any other name as it is. VLAN devices on switch ports carry no
/// operational state of their own worth reading, and share tables and rules with their parent.
std::string get_pure_ifname(std::string ifname);

/// 1 if `operstate` of the device (its parent, see get_pure_ifname()) says "up" or `carrier` says 1, else 0
/// (Documentation/ABI/testing/sysfs-class-net). A device that reports "unknown" with a carrier is up.
int is_iface_up(std::string ifname);

/// Polls is_iface_up() twice a second. 0 as soon as the device is up, 1 after 20.5 seconds.
int wait_for_iface_up(std::string ifname);

/// is_iface_up() for the device type "ethernet"; devices of any other type are held to be up (1).
int is_interface_link_up(std::string ifname, std::string dev_type);

#pragma GCC visibility pop

namespace nm {

/// is_iface_up() for those who only look: without its lock, which only root can have.
bool has_link(const std::string& ifname);

}  // namespace nm

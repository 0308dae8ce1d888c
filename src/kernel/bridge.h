// Bridge devices: creating and deleting them, their ports and their spanning tree.
//
// Nothing here logs: the caller knows what the bridge is for, and tells. Names are at most 15 characters; a
// longer one is refused, since cutting it could hit another device.
//
// Codes: NM_ERR_BR_ARG for a null or empty name; NM_ERR_BR_SOCKET, NM_ERR_BR_CONNECT, NM_ERR_BR_CACHE and
// NM_ERR_BR_LINK when the kernel can't be asked; the others by function.
#pragma once

#include <string>
#include <vector>

#pragma GCC visibility push(default)

/// Creates a bridge, which stays down. The request does not insist on a new device, so the kernel's answer is
/// success for any name that a device has already, a bridge or not: a caller that must know checks first.
/// NM_ERR_BR_ADD if the kernel refuses; NM_ERR_BR_TYPE if the kernel cannot be asked for a bridge.
int br_addbr(const char* name);

/// Deletes the device of that name; its ports are released by the kernel. The kernel is not told that a
/// bridge is meant, and deletes any other device that can be deleted (rtnetlink(7), RTM_DELLINK).
/// NM_ERR_BR_DELETE if it refuses or has no such device.
int br_delbr(const char* name);

/// Makes `port` a port of the bridge, also when it is another bridge's. NM_ERR_BR_NO_DEVICE if either device
/// is missing, which is looked at first; NM_ERR_BR_TYPE if the first is not a bridge; NM_ERR_BR_ENSLAVE if
/// the kernel refuses.
int br_addif(const char* bridge, const char* port);

/// Releases `port` from the bridge that it is in, whichever that is; a device that is in none stays as it
/// is. Codes as br_addif(), with NM_ERR_BR_RELEASE if the kernel refuses.
int br_delif(const char* bridge, const char* port);

/// Switches the spanning tree on (1) or off (0). NM_ERR_BR_TYPE for another number; NM_ERR_BR_SYSFS if the
/// bridge does not exist or the kernel refuses.
int br_stp(const std::string& bridge, int on);

/// The names of the bridge's ports in alphabetical order; empty if there is no such bridge.
std::vector<std::string> get_bridge_slaves(std::string bridge);

#pragma GCC visibility pop

// The address of a port's end of the overlay's tunnels: it follows from the device's id and the port's
// number, so that every device knows those of all others.
#pragma once

#include <string>

#pragma GCC visibility push(default)

/// Writes the address to `out`: 198.19.0.0 for device 1 port 1, eight addresses for each device, so that a
/// ninth port has the address of the next device's first. Nothing is checked: numbers of 65536 and more
/// spill into the first two bytes, and a device without an id (0) has addresses before the first.
void gen_tun_addr4(int device_id, int port, std::string& out);

#pragma GCC visibility pop

// The client for dynamic IPv4 addresses, one unit for each interface.
#pragma once

#include <string>

#pragma GCC visibility push(default)

/// Stops the client of `ifname`. `mode` says what follows: 2 the client again, 0 another type or nothing. The
/// client's lease file stays in both cases, since a new client asks for its old address by it. 0 or the code
/// of service_stop().
int kill_ipv4_dhcp(const std::string& ifname, int mode);

#pragma GCC visibility pop

// The client for dynamic IPv4 addresses, one unit for each interface.
#pragma once

#include <string>

#pragma GCC visibility push(default)

/// Starts the client of `ifname`. It hands the path of the document that asks for it on to its events, which
/// may come before that document is the stored one. 0 or the code of service_start().
int start_ipv4_dhcp(const std::string& ifname, const std::string& path);

/// Stops the client of `ifname`. `mode` says what follows: 2 the client again, 0 another type or nothing. The
/// client's lease file stays in both cases, since a new client asks for its old address by it. 0 or the code
/// of service_stop().
int kill_ipv4_dhcp(const std::string& ifname, int mode);

#pragma GCC visibility pop

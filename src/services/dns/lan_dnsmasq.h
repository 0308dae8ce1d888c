// The addresses on which dnsmasq listens for the clients of the LANs.
#pragma once

#include <string>

#pragma GCC visibility push(default)

/// Has the service `DnsmasqMgr` listen on `address` (`add` is not 0) or no longer listen on it (`add` is 0).
/// 0, or the code of the call, which may last 60 seconds; see vservice_call().
int setup_lan_dnsmasq(int add, std::string address);

#pragma GCC visibility pop

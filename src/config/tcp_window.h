// The kernel's TCP buffer limits, sized by the configured bandwidth of the uplinks.
#pragma once

#include <string>

#pragma GCC visibility push(default)

/// Sums the rates (bits per second) of the WAN and private ports of the document at `path` and gives the
/// receive and send buffers a tenth of the sum in bytes: net.core.rmem_max, wmem_max, net.ipv4.tcp_rmem and
/// tcp_wmem (tcp(7)). 0, also where a setting could not be written (logged); a document that cannot be read
/// gives its code and leaves everything untouched.
int scale_tcp_window(std::string path);

#pragma GCC visibility pop

// TCP MSS of connections over the uplinks: clamped to the uplink's MTU, so that no path discovery has to
// work. The rules stand in the chains TCP_MSS and WAN_MSS of the nat table and WAN_MSS of the mangle tables.
#pragma once

#include <string>

#pragma GCC visibility push(default)

/// Empties the chains, which have to be there, and fills them for the uplinks of the document at `path`
/// (`WAN_IFACE_INFO`). The MTU is the device's own; an uplink without a device has no rules until the next
/// call. 0; the code of reading the document, which leaves the rules alone; NM_ERR_SERVICE if a command
/// failed, and the others were run.
int set_tcp_mss(std::string path);

#pragma GCC visibility pop

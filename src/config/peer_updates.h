// Commands to the peer daemons for an uplink of which only the name or only the id is known; the device
// document at `path` has the other. The commands themselves are in peers/unix/peer_commands.h.
#pragma once

#include <cstdint>
#include <string>

#include "peers/unix/peer_commands.h"

#pragma GCC visibility push(default)

/// The interface of the WAN port whose id is `id`: the reverse of get_id_by_wan_ifname(). 0, or
/// NM_ERR_NO_IFACE with `ifname` untouched.
int get_ifname_by_wan_id(uint8_t id, std::string& ifname, std::string path);

/// The uplink's configuration has changed: `ncsid` probes it anew, `wanipd` learns its address anew. None of
/// them waits for an answer. 0, NM_ERR_NO_IFACE, or a code of update_ncsi() and update_ipinfo().
int update_ncsi_by_ifname(std::string interface, std::string path);
int update_ncsi_by_id(uint8_t id, std::string path);
int update_ipinfo(std::string interface, std::string path);
int update_ipinfo_by_id(uint8_t id, std::string path);

#pragma GCC visibility pop

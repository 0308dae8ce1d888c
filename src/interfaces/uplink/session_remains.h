// What a PPPoE session may leave behind on a port that has gone on without it.
#pragma once

#include <string>

namespace nm {

/// Takes the address `ip` of an ended session of the port `ifname` out of the sets (none if `ip` is empty),
/// unless the session that runs now, or for `localip` any device, has it. Where no session runs and the port
/// has no address of its own, its table and rules go too: nobody uses them any more. `ifindex` is the index
/// that the session's interface had, 0 if it is not known. Failures are logged.
void clear_session_remains(const std::string& ifname, const std::string& ip, int ifindex);

}  // namespace nm

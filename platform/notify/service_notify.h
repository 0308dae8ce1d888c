// Reports to the manager of services, by datagrams as sd_notify(3) sends them.
#pragma once

#include <string>

/// Sends `state`, such as "READY=1", to the socket that NOTIFY_SOCKET names; without one, nobody waits for
/// it. A failure is written to the standard error: whoever waits runs out of time.
void notify_manager(const std::string& state);

// The sessions: starting and stopping their units, and what pppd has reported about them.
#pragma once

#include <optional>
#include <string>

#include "vpppoe.h"

namespace vpppoe {

/// Runs one verb of systemctl on the session's unit and waits for it. VPPPOE_ERR_UNAVAILABLE if it fails.
int control(const char* verb, const std::string& ifname);

/// Starts the session of a stored configuration and takes the stop flag back; with `anew` one that runs is
/// ended first.
int start(const std::string& ifname, bool anew);

/// What the running session was given; nothing if none is running, whatever an older one has left.
std::optional<pppoe_runtime_cfg> runtime_cfg(const std::string& ifname);

}  // namespace vpppoe

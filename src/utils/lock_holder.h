// Who holds a lock.
#pragma once

#include <string>

#pragma GCC visibility push(default)

/// The other process that holds the flock(2) of this file, "NAME (process PID)"; empty if none does that this
/// process can see.
std::string lock_holder(const std::string& lock_file);

#pragma GCC visibility pop

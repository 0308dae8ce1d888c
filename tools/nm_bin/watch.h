// One call of the library as a person follows it: what it waits for, what it logs as errors, how its targets
// come out.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace nm_bin {

struct TargetResult {
    std::string target;
    int code;
};

/// What is known about a call when it is over.
struct Outcome {
    int code = 0;
    std::vector<TargetResult> targets;
    std::vector<std::string> errors;  // the last ones of each target that failed, else of the call
    std::string lock;                 // that it waited for last, the name of its file
    std::string holder;               // who had that lock, empty if nobody was found
    std::string service;              // of the bus, that it asked last

    bool has_failed() const;
};

/// Runs the call; where standard error is a terminal, a wait of more than a second is shown there meanwhile.
Outcome watch_call(const std::function<int()>& call);

/// The other process that holds the lock of this file, "NAME (process PID)"; empty if none does.
std::string lock_holder(const std::string& lock_file);

}  // namespace nm_bin

// One call of the library as a person follows it: what it waits for, what it logs as errors, how its targets
// come out.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace nm_bin {

/// What was noted while a piece of work lasted.
struct Notes {
    std::vector<std::string> errors;  // the last ones
    std::string lock;                 // that it waited for last, the name of its file
    std::string holder;               // who had that lock, empty if nobody was found
    std::string service;              // of the bus, that it asked last
};

/// A target of a request, or a step of a command that has several.
struct TargetResult {
    std::string target;
    int code = 0;
    Notes notes{};
    bool counts = true;  // whether its failure is one of the command
};

/// What is known about a call when it is over.
struct Outcome {
    int code = 0;
    std::vector<TargetResult> targets;
    Notes notes;  // of what belongs to no target

    bool has_failed() const;
};

/// Runs the call; where standard error is a terminal, a wait of more than a second is shown there meanwhile,
/// with the target that waits.
Outcome watch_call(const std::function<int()>& call);

/// Works a step of the call under way that no entry of the library names as a target; its result. Where no
/// call is watched, the work alone.
int work_step(const std::string& name, const std::function<int()>& work);

/// The target of the call under way that was done last; one has to have been.
TargetResult& last_target();

}  // namespace nm_bin

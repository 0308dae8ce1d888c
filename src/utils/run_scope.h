// One run over what may be set up already, such as the bring-up of a device that is up.
#pragma once

#include <map>
#include <optional>
#include <string>

namespace nm {

/// While the object lives, what this thread is to write, and finds written already exactly so, may be left
/// alone. One within another does nothing.
class RunScope {
public:
    RunScope();
    ~RunScope();
    RunScope(const RunScope&) = delete;
    RunScope& operator=(const RunScope&) = delete;

    /// Whether there is one in this thread.
    static bool stands();

    /// What a command that only reads prints, or has printed before in this scope. Nothing without a scope,
    /// or if it cannot be run.
    static std::optional<std::string> look(const std::string& command);

    /// The next look() runs the command anew: what it reads has been changed.
    static void forget(const std::string& command);

private:
    std::map<std::string, std::string> seen_;
    bool is_outermost_;
};

}  // namespace nm

// The place of a rehearsal: namespaces of its own, in which nothing of the device can be changed.
#pragma once

#include <functional>
#include <map>
#include <string>

namespace nm {

/// The name of the network namespace that holds the far ends of the copy's cables (ip-netns(8)).
extern const char* const kFarNamespace;

/// Where the rehearsal keeps what it needs on the way, in its own mount namespace.
extern const char* const kRehearsalDirectory;

/// The descriptors that lead out of the rehearsal: of its report, and of what is printed.
struct Outlets {
    int report;
    int output;
};

/// Settings of /proc/sys/net that the whole device shares, by path.
struct SharedSetting {
    std::string value;
    bool is_writable;
};
using SharedSettings = std::map<std::string, SharedSetting>;

/// To be read where the device's own network is.
SharedSettings read_shared_settings();

/// Runs `work` in a process that is the first one of new namespaces, with every descriptor but the outlets
/// cut off, and waits for it. The process dies with this one. Whether it has ended by itself.
bool run_apart(const Outlets& outlets, const std::function<void()>& work);

/// For `work`: makes the files read-only or covers them, and enters an empty network. Throws
/// std::runtime_error.
void enter_place(const SharedSettings& settings);

/// For `work`: waits until the processes that it has left in the background have ended, or a moment has gone.
/// Whether they have ended.
bool await_background();

}  // namespace nm

// Notes to the watcher of a call (utils/call_watch.h), from where things happen.
#pragma once

#include <functional>
#include <string>

namespace nm {

void note_error(const std::string& text);

/// Works a target, or what else has a name and a result of its own, between the notes of both; its result.
int work_target(const std::string& target, const std::function<int()>& work);

/// A wait, for the life of the object.
class WaitNote {
public:
    /// For what, in words; within how many seconds it ends one way or the other, 0 if that is not known.
    explicit WaitNote(const std::string& what, int limit = 0, const char* lock_file = nullptr);
    ~WaitNote();
    WaitNote(const WaitNote&) = delete;
    WaitNote& operator=(const WaitNote&) = delete;
};

}  // namespace nm

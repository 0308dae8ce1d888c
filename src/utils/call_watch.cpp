// The watcher of this process's calls.
#include "utils/call_watch.h"

#include <atomic>

#include "utils/call_notes.h"

namespace {

std::atomic<const nm_call_watch*> watcher{nullptr};

template <class Member, class... Values>
void tell(Member nm_call_watch::*member, Values... values) {
    const nm_call_watch* const watch = watcher.load();
    if (watch != nullptr && watch->*member != nullptr) {
        (watch->*member)(values...);
    }
}

}  // namespace

void nm_watch_calls(const nm_call_watch* watch) {
    watcher = watch;
}

namespace nm {

void note_error(const std::string& text) {
    tell(&nm_call_watch::error_logged, text.c_str());
}

int work_target(const std::string& target, const std::function<int()>& work) {
    tell(&nm_call_watch::target_begins, target.c_str());
    const int code = work();
    tell(&nm_call_watch::target_done, target.c_str(), code);
    return code;
}

WaitNote::WaitNote(const std::string& what, int limit, const char* lock_file) {
    tell(&nm_call_watch::wait_begins, what.c_str(), lock_file, limit);
}

WaitNote::~WaitNote() {
    tell(&nm_call_watch::wait_ends);
}

}  // namespace nm

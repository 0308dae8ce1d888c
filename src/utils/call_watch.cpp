// The watchers of this process's calls.
#include "utils/call_watch.h"

#include <atomic>

#include "utils/call_notes.h"

namespace {

std::atomic<const nm_call_watch*> watcher{nullptr};

template <class Watch, class Member, class... Values>
void tell_one(const Watch* watch, Member Watch::*member, Values... values) {
    if (watch != nullptr && watch->*member != nullptr) {
        (watch->*member)(values...);
    }
}

template <class Member, class... Values>
void tell(Member nm_call_watch::*member, Values... values) {
    tell_one(watcher.load(), member, values...);
}

template <class Member, class... Values>
void tell(Member nm_step_watch::*member, Values... values) {
    tell_one(nm::step_watcher.load(), member, values...);
}

}  // namespace

void nm_watch_calls(const nm_call_watch* watch) {
    watcher = watch;
}

void nm_watch_steps(const nm_step_watch* watch) {
    nm::step_watcher = watch;
}

namespace nm {

std::atomic<const nm_step_watch*> step_watcher{nullptr};

void Step::begin(const char* kind, const char* name, const char* object) {
    tell(&nm_step_watch::step_begins, kind, name, object);
}

void Step::end() {
    tell(&nm_step_watch::step_ends);
}

void Step::note(const char* key, const std::string& value) const {
    if (is_watched_) {
        tell(&nm_step_watch::step_noted, key, value.c_str());
    }
}

int Step::result(int code) const {
    if (is_watched_) {
        note("result", std::to_string(code));
    }
    return code;
}

void note_lock(int handle, const std::string& name) {
    tell(&nm_step_watch::lock_taken, handle, name.c_str());
}

void note_unlock(int handle) {
    tell(&nm_step_watch::lock_released, handle);
}

void note_error(const std::string& text) {
    tell(&nm_call_watch::error_logged, text.c_str());
}

int work_target(const std::string& target, const std::function<int()>& work) {
    tell(&nm_call_watch::target_begins, target.c_str());
    const Step step("target", target, "");
    const int code = step.result(work());
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

// Notes to the watchers of a call (utils/call_watch.h), from where things happen.
#pragma once

#include <atomic>
#include <functional>
#include <string>

struct nm_step_watch;

namespace nm {

/// Null unless somebody times the calls of this process.
extern std::atomic<const nm_step_watch*> step_watcher;

inline bool are_steps_watched() {
    return step_watcher.load(std::memory_order_relaxed) != nullptr;
}

/// A step of a call, for the life of the object. What it costs without a watcher is a look at a pointer, so
/// that nothing is put together for it: names are texts that are there already.
class Step {
public:
    /// A text of either kind, which lasts as long as the constructor.
    struct Text {
        Text(const char* given) : text(given) {}
        Text(const std::string& given) : text(given.c_str()) {}
        const char* text;
    };

    /// Of which kind, its name and what it is about: see utils/call_watch.h.
    Step(const char* kind, const Text& name, const Text& object) : is_watched_(are_steps_watched()) {
        if (is_watched_) {
            begin(kind, name.text, object.text);
        }
    }
    ~Step() {
        if (is_watched_) {
            end();
        }
    }
    Step(const Step&) = delete;
    Step& operator=(const Step&) = delete;

    /// Only while no step within this one is open.
    void note(const char* key, const std::string& value) const;

    /// Notes the result; returns it.
    int result(int code) const;

private:
    static void begin(const char* kind, const char* name, const char* object);
    static void end();

    bool is_watched_;
};

/// The lock of this name is held from now on, and no longer.
void note_lock(int handle, const std::string& name);
void note_unlock(int handle);

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

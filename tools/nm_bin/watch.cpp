// Watching a call: the library's notes, and the line on the terminal.
#include "nm_bin/watch.h"

#include <networkinterface.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <thread>

namespace nm_bin {

namespace {

using Clock = std::chrono::steady_clock;

/// The line on the terminal while a wait lasts, by a thread of its own, since the one that waits cannot write
/// it.
class WaitLine {
public:
    WaitLine() : thread_([this] { run(); }) {}
    WaitLine(const WaitLine&) = delete;
    WaitLine& operator=(const WaitLine&) = delete;
    ~WaitLine() {
        {
            const std::lock_guard guard(mutex_);
            is_over_ = true;
        }
        changed_.notify_one();
        thread_.join();
    }

    /// Who waits, in front of the line, and for what.
    void begin(const std::string& who, const std::string& what, const std::string& lock_file, int limit) {
        const std::lock_guard guard(mutex_);
        who_ = who;
        what_ = what;
        lock_file_ = lock_file;
        limit_ = limit;
        start_ = Clock::now();
    }

    void end() {
        const std::lock_guard guard(mutex_);
        what_.clear();
        wipe();
    }

private:
    static constexpr std::chrono::milliseconds kInterval{250};

    void run() {
        std::unique_lock guard(mutex_);
        while (!changed_.wait_for(guard, kInterval, [this] { return is_over_; })) {
            const auto waited =
                std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - start_).count();
            if (!what_.empty() && waited >= 1) {
                draw(waited);
            }
        }
        wipe();
    }

    void draw(long seconds) {
        const std::string holder = lock_file_.empty() ? "" : lock_holder(lock_file_);
        std::ostringstream line;
        line << who_ << (who_.empty() ? "" : ": ") << "waiting " << seconds << " s";
        if (limit_ > 0) {
            line << " of at most " << limit_;
        }
        line << " for " << what_ << (holder.empty() ? "" : ", held by " + holder);
        std::cerr << "\r\033[K" << line.str().substr(0, columns()) << std::flush;
        is_drawn_ = true;
    }

    /// What stays on one line, which alone can be wiped.
    static size_t columns() {
        winsize size{};
        const bool is_known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
        return is_known ? size.ws_col - 1U : std::string::npos;
    }

    void wipe() {
        if (is_drawn_) {
            std::cerr << "\r\033[K" << std::flush;
            is_drawn_ = false;
        }
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    bool is_over_ = false;
    bool is_drawn_ = false;
    std::string who_;
    std::string what_;
    std::string lock_file_;
    int limit_ = 0;
    Clock::time_point start_;
    std::thread thread_;  // last: it uses all of the above
};

/// The call under way.
struct Call {
    Outcome outcome;
    std::optional<TargetResult> target;  // that is worked
    std::unique_ptr<WaitLine> line;      // null without a terminal

    Notes& notes() { return target ? target->notes : outcome.notes; }
};

// The library's notes carry no pointer of the watcher's.
Call* watched = nullptr;

void note_holder() {
    Notes& notes = watched->notes();
    const std::string holder = notes.lock.empty() ? "" : lock_holder(notes.lock);
    if (!holder.empty()) {
        notes.holder = holder;
    }
}

void note_wait(const char* what, const char* lock_file, int limit) {
    constexpr std::string_view kService = "an answer of ";
    Notes& notes = watched->notes();
    notes.lock = lock_file == nullptr ? "" : lock_file;
    notes.holder.clear();
    if (std::string_view(what).substr(0, kService.size()) == kService) {
        notes.service = what + kService.size();
    }
    note_holder();
    if (watched->line != nullptr) {
        watched->line->begin(watched->target ? watched->target->target : "", what, notes.lock, limit);
    }
}

/// Who has the lock at last is why the call fails.
void note_wait_end() {
    note_holder();
    if (watched->line != nullptr) {
        watched->line->end();
    }
}

void note_error(const char* text) {
    constexpr size_t kKept = 5;
    std::vector<std::string>& errors = watched->notes().errors;
    std::string line = text;
    std::replace(line.begin(), line.end(), '\n', ' ');
    line.erase(0, line.find_first_not_of(' '));
    if (line.empty() || (!errors.empty() && errors.back() == line)) {
        return;
    }
    errors.push_back(line);
    if (errors.size() > kKept) {
        errors.erase(errors.begin());
    }
}

void note_target(const char* target) {
    watched->target.emplace();
    watched->target->target = target;
}

/// What a target that succeeded logged on its way is not why the call fails.
void note_result(const char* /*target*/, int code) {
    if (!watched->target) {
        return;
    }
    watched->target->code = code;
    watched->outcome.targets.push_back(*watched->target);
    watched->target.reset();
}

/// The watch of this process, for the length of a call.
class Watch {
public:
    Watch() {
        static constexpr nm_call_watch kNotes{note_wait, note_wait_end, note_error, note_target, note_result};
        if (isatty(STDERR_FILENO) == 1) {
            call_.line = std::make_unique<WaitLine>();
        }
        watched = &call_;
        nm_watch_calls(&kNotes);
    }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;
    ~Watch() {
        nm_watch_calls(nullptr);
        watched = nullptr;
    }

    Outcome& outcome() { return call_.outcome; }

private:
    Call call_;
};

}  // namespace

bool Outcome::has_failed() const {
    return code < 0 || std::any_of(targets.begin(), targets.end(),
                                   [](const TargetResult& result) { return result.code < 0; });
}

Outcome watch_call(const std::function<int()>& call) {
    Watch watch;
    watch.outcome().code = call();
    return watch.outcome();
}

int work_step(const std::string& name, const std::function<int()>& work) {
    if (watched == nullptr) {
        return work();
    }
    note_target(name.c_str());
    const int code = work();
    note_result(name.c_str(), code);
    return code;
}

TargetResult& last_target() {
    return watched->outcome.targets.back();
}

}  // namespace nm_bin

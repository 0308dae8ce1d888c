// The trace of a request, worked in a child.
#include "inspect/trace.h"

#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <new>
#include <set>
#include <string>

#include "inspect/rehearsal_run.h"
#include "inspect/step_record.h"
#include "inspect/trace_report.h"
#include "log.h"
#include "result_codes.h"
#include "utils/call_watch.h"
#include "utils/file_io.h"
#include "utils/json_text.h"

namespace {

constexpr nm::RecordRoom kRoom{50000, uint32_t{32} << 20};

constexpr std::array kHandedOn{SIGHUP, SIGINT, SIGQUIT, SIGTERM};

/// The watcher of steps has no argument of its own. Processes that the request forks have another id.
nm::StepRecord* record_in_work = nullptr;
pid_t recorder = 0;

bool is_recorder() {
    return getpid() == recorder;
}

void begin_step(const char* kind, const char* name, const char* object) {
    if (is_recorder()) {
        record_in_work->begin(kind, name, object);
    }
}

void note_step(const char* key, const char* value) {
    if (is_recorder()) {
        record_in_work->note(key, value);
    }
}

void end_step() {
    if (is_recorder()) {
        record_in_work->end();
    }
}

void begin_hold(int handle, const char* name) {
    if (is_recorder()) {
        record_in_work->begin_hold(handle, name);
    }
}

void end_hold(int handle) {
    if (is_recorder()) {
        record_in_work->end_hold(handle);
    }
}

/// The signals that are handed on wait until somebody asks for them, as does the one of a child's end.
/// Whoever ignores that one would not learn how the child has ended (wait(2)).
class HeldSignals {
public:
    HeldSignals() : child_action_before_(std::signal(SIGCHLD, SIG_DFL)) {
        sigemptyset(&set_);
        sigaddset(&set_, SIGCHLD);
        for (const int signal : kHandedOn) {
            sigaddset(&set_, signal);
        }
        (void)pthread_sigmask(SIG_BLOCK, &set_, &before_);
    }
    HeldSignals(const HeldSignals&) = delete;
    HeldSignals& operator=(const HeldSignals&) = delete;
    ~HeldSignals() { release(); }

    void release() const {
        (void)std::signal(SIGCHLD, child_action_before_);
        (void)pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }

    /// What came; nothing came within a moment if it is not a signal's number. What the terminal sends, it
    /// sends to the child as well.
    siginfo_t next() const {
        constexpr timespec kMoment{0, 100000000};
        siginfo_t came{};
        came.si_signo = sigtimedwait(&set_, &came, &kMoment);
        return came;
    }

private:
    sighandler_t child_action_before_;
    sigset_t set_{};
    sigset_t before_{};
};

void die_with(pid_t parent) {
    if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || getppid() != parent) {
        _exit(EXIT_FAILURE);
    }
}

/// Nothing may lead back into the caller, of which the child is a second one: an exception ends the child.
[[noreturn]] void work(const std::function<int()>& request, nm::StepRecord& record) noexcept {
    static constexpr nm_step_watch kWatch{begin_step, note_step, end_step, begin_hold, end_hold};
    recorder = getpid();
    record_in_work = &record;
    record.begin(nm::kRequestKind, program_invocation_short_name, "");
    nm_watch_steps(&kWatch);
    const int code = request();
    nm_watch_steps(nullptr);
    record.end();
    record.set_code(code);
    std::cout.flush();
    std::cerr.flush();
    (void)fflush(nullptr);
    _exit(EXIT_SUCCESS);
}

/// The status of the child, when it has ended.
int await(pid_t child, const HeldSignals& signals) {
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
        const siginfo_t came = signals.next();
        if (came.si_signo > 0 && came.si_signo != SIGCHLD && came.si_code != SI_KERNEL) {
            (void)kill(child, came.si_signo);
        }
    }
    return status;
}

Json::Value answer_of(const nm::StepRecord& record, int status) {
    Json::Value answer;
    int code = 0;
    if (record.has_code(code)) {
        answer["code"] = code;
    } else if (WIFSIGNALED(status)) {
        answer["signal"] = WTERMSIG(status);
    } else {
        answer["code"] = WEXITSTATUS(status);
    }
    return answer;
}

/// Documents that are not stored may hold secrets as well.
void learn_loaded(const std::vector<nm::RecordedStep>& steps, secret_words& secrets) {
    std::set<std::string> paths;
    for (const nm::RecordedStep& step : steps) {
        if (step.kind == "document") {
            paths.insert(step.object);
        }
    }
    for (const std::string& path : paths) {
        Json::Value document;
        std::error_code error;
        if (std::filesystem::is_regular_file(path, error) &&
            nm::parse_json(nm::read_file(path).value_or(""), document)) {
            secrets.learn(document);
        }
    }
}

int refuse(const std::string& reason, Json::Value& report) {
    NM_LOG(Error) << "No trace: " << reason;
    report["reason"] = reason;
    return NM_ERR_SERVICE;
}

int trace(const std::function<int()>& request, Json::Value& report) {
    secret_words secrets;
    nm::learn_documents(secrets);
    nm::StepRecord record(kRoom);
    const HeldSignals signals;
    std::cout.flush();
    (void)fflush(nullptr);
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child < 0) {
        return refuse(strerror(errno), report);
    }
    if (child == 0) {
        signals.release();
        die_with(parent);
        work(request, record);
    }
    const int status = await(child, signals);
    const std::vector<nm::RecordedStep> steps = record.steps(record.now());
    if (steps.empty()) {
        return refuse("the child has ended before it could begin", report);
    }
    nm::learn_documents(secrets);
    learn_loaded(steps, secrets);
    report = nm::report_steps(steps, child, secrets);
    report["answer"] = answer_of(record, status);
    report["dropped"] = Json::UInt64(record.dropped());
    return NM_OK;
}

}  // namespace

int trace_request(const std::function<int()>& request, Json::Value& report) {
    NM_LOG(Debug) << "Enter";
    if (!request) {
        NM_LOG(Error) << "request is Null pointer.";
        return NM_EXIT(NM_ERR_NULL_ARG);
    }
    report = Json::objectValue;
    try {
        return NM_EXIT(trace(request, report));
    } catch (const std::bad_alloc&) {
        return NM_EXIT(refuse("no memory", report));
    }
}

// Programs started without a shell.
#include "utils/direct_command.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "utils/containers.h"
#include "utils/shell_text.h"

namespace {

constexpr std::string_view kSilent = " >/dev/null 2>&1";

struct Program {
    std::vector<std::string> words;
    bool is_silent = false;
};

std::optional<Program> parse(std::string_view command) {
    Program program;
    program.is_silent =
        command.size() > kSilent.size() && command.substr(command.size() - kSilent.size()) == kSilent;
    command.remove_suffix(program.is_silent ? kSilent.size() : 0);
    if (command.empty() || command.front() != '/') {
        return std::nullopt;
    }
    split_into_vector(std::string(command), ' ', program.words);
    const bool is_plain = std::all_of(program.words.begin(), program.words.end(),
                                      [](const std::string& word) { return nm::is_plain(word); });
    return is_plain ? std::optional(std::move(program)) : std::nullopt;
}

/// What the keyboard sends while the program runs is for the program alone, and its end for the one who
/// waits. Dispositions belong to the whole process, so that the first of several threads sets them and the
/// last one gives them back.
class Signals {
public:
    Signals() {
        const std::lock_guard guard(mutex);
        struct sigaction ignore = {};
        ignore.sa_handler = SIG_IGN;
        if (users++ == 0) {
            (void)sigaction(SIGINT, &ignore, &interrupt);
            (void)sigaction(SIGQUIT, &ignore, &quit);
        }
        sigset_t child;
        sigemptyset(&child);
        sigaddset(&child, SIGCHLD);
        (void)pthread_sigmask(SIG_BLOCK, &child, &mask_);
    }
    ~Signals() {
        const std::lock_guard guard(mutex);
        if (--users == 0) {
            (void)sigaction(SIGINT, &interrupt, nullptr);
            (void)sigaction(SIGQUIT, &quit, nullptr);
        }
        (void)pthread_sigmask(SIG_SETMASK, &mask_, nullptr);
    }
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;

    /// The program begins with what the caller had.
    void hand_on(posix_spawnattr_t& attributes) const {
        sigset_t defaults;
        sigemptyset(&defaults);
        for (const auto& [number, before] : {std::pair(SIGINT, &interrupt), std::pair(SIGQUIT, &quit)}) {
            before->sa_handler != SIG_IGN ? sigaddset(&defaults, number) : 0;
        }
        (void)posix_spawnattr_setsigdefault(&attributes, &defaults);
        (void)posix_spawnattr_setsigmask(&attributes, &mask_);
        (void)posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    }

private:
    inline static std::mutex mutex;
    inline static int users = 0;
    inline static struct sigaction interrupt;
    inline static struct sigaction quit;
    sigset_t mask_{};
};

int spawn(Program& program, const Signals& signals, pid_t& child) {
    std::vector<char*> argv;
    for (std::string& word : program.words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_t actions;
    (void)posix_spawnattr_init(&attributes);  // neither of them can fail with the C library of Linux
    (void)posix_spawn_file_actions_init(&actions);
    signals.hand_on(attributes);
    int error = 0;
    if (program.is_silent) {
        error = posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        error = error == 0 ? posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO) : error;
    }
    error = error == 0 ? posix_spawn(&child, argv[0], &actions, &attributes, argv.data(), environ) : error;
    (void)posix_spawn_file_actions_destroy(&actions);
    (void)posix_spawnattr_destroy(&attributes);
    return error;
}

}  // namespace

std::optional<int> nm::run_directly(std::string_view command) {
    std::optional<Program> program = parse(command);
    if (!program) {
        return std::nullopt;
    }
    const Signals signals;
    pid_t child = 0;
    if (spawn(*program, signals, child) != 0) {
        return std::nullopt;
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) {
            return -1;
        }
    }
    return status;
}

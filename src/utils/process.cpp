// Commands run through the shell, whatever their size, or without one where none is needed.
#include "utils/process.h"

#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/wait.h>

#include <memory>
#include <optional>
#include <stdexcept>

#include "log.h"
#include "result_codes.h"
#include "utils/call_notes.h"
#include "utils/direct_command.h"
#include "utils/file_io.h"
#include "utils/files.h"
#include "utils/handles.h"

namespace {

// The kernel takes no single argument of more than 32 pages, its terminator included.
constexpr std::size_t kArgumentLimit = 131072;
constexpr std::size_t kTableSize = 512;
constexpr std::size_t kMaxWords = kTableSize / sizeof(char*) - 1;
constexpr std::size_t kTextSize = 1024;

// A command of a size that the kernel takes, and the script that it reads if there is one.
struct Command {
    nm::FileDescriptor script;
    std::string line;
};

// A long text goes into a file without a name that the shell opens through our own /proc entry: the
// descriptor is close-on-exec, so neither the script's commands nor other children inherit it. /proc may
// show another pid namespace than getpid(), hence the link.
std::optional<Command> hand_over(const char* text) {
    if (strlen(text) < kArgumentLimit) {
        return Command{{}, text};
    }
    nm::FileDescriptor script(memfd_create("script", MFD_CLOEXEC));
    char pid[32] = {};
    if (!script || !nm::write_all(script.get(), text) || readlink("/proc/self", pid, sizeof(pid) - 1) < 0) {
        return std::nullopt;
    }
    const std::string path = std::string("/proc/") + pid + "/fd/" + std::to_string(script.get());
    if (access(path.c_str(), R_OK) != 0) {
        return std::nullopt;
    }
    return Command{std::move(script), "exec /bin/sh " + path};
}

/// The wait status; -1 if the text could not be handed to a shell, or no process be made.
int run_by_shell(const char* cmd) {
    const std::optional<Command> command = hand_over(cmd);
    return command ? system(command->line.c_str()) : -1;
}

int run(const char* cmd) {
    const nm::Step step("process", "run", cmd);
    const std::optional<int> direct = nm::run_directly(cmd);
    const int status = direct ? *direct : run_by_shell(cmd);
    if (status == -1) {
        NM_LOG(Error) << "system error!, cmd: " << nm::LogLines{cmd};
        return step.result(NM_ERR_SERVICE);
    }
    if (WTERMSIG(status) != 0) {
        NM_LOG(Error) << "system call child process, exit abnormally, exit status: " << status
                      << " , cmd: " << nm::LogLines{cmd};
        return step.result(NM_ERR_SERVICE);
    }
    NM_LOG(Debug) << "script exit code: " << WEXITSTATUS(status) << " , cmd: " << nm::LogLines{cmd};
    return step.result(WEXITSTATUS(status));
}

}  // namespace

int system_cmd(const char* cmd) {
    NM_LOG(Debug) << "Enter";
    if (cmd == nullptr) {
        NM_LOG(Error) << "cmd is Null pointer.";
        return NM_EXIT(NM_ERR_NULL_ARG);
    }
    NM_LOG(Debug) << "cmd: " << nm::LogLines{cmd};
    return NM_EXIT(run(cmd));
}

std::string exec(const char* cmd) {
    NM_LOG(Debug) << "Enter";
    const nm::Step step("process", "read", cmd != nullptr ? cmd : "");
    const std::optional<Command> command = cmd != nullptr ? hand_over(cmd) : std::nullopt;
    const std::optional<nm::PipeStream> pipe =
        command ? std::optional<nm::PipeStream>(std::in_place, command->line.c_str()) : std::nullopt;
    if (!pipe || !*pipe) {
        throw std::runtime_error("popen() failed!");
    }
    std::string output = nm::read_to_end(pipe->fd()).value_or("");
    NM_LOG(Debug) << "Exit";
    return output;
}

int cmd2argv(const char* cmd, char*** argv) {
    if (cmd == nullptr || argv == nullptr) {
        return -1;
    }
    using Memory = std::unique_ptr<void, void (*)(void*)>;
    Memory table(calloc(1, kTableSize), &free);
    Memory buffer(calloc(1, kTextSize), &free);
    if (!table || !buffer) {
        return -1;
    }
    char** words = static_cast<char**>(table.get());
    char* text = static_cast<char*>(buffer.get());
    strncpy(text, cmd + strspn(cmd, " "), kTextSize - 1);

    std::size_t count = 0;
    char* rest = nullptr;
    for (char* word = strtok_r(text, " ", &rest); word != nullptr && count < kMaxWords;
         word = strtok_r(nullptr, " ", &rest)) {
        words[count++] = word;
    }
    words[0] = text;  // Leading blanks are gone, so this is the first word, if there is one.
    (void)buffer.release();
    *argv = static_cast<char**>(table.release());
    return static_cast<int>(count);
}

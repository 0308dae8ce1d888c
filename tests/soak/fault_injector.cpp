// Runs a command and lets one system call of it fail, or kills the process that makes it. The calls of the
// command and of all processes that it starts are counted together, which strace does for each process apart:
// only so every single call of a child can be met while its parents live on. What outlives the command is let
// go.
//
// usage: fault_injector JOURNAL NUMBER kill|ERRNO COMMAND [ARG]...
// Writes a line a call to JOURNAL, "number pid call-of-the-process system-call program", up to the one that
// is met. NUMBER 0 meets none. Exits with the command's status, 137 if it was killed.
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

namespace {

constexpr long kOptions = PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK |
                          PTRACE_O_TRACECLONE | PTRACE_O_TRACEEXEC;
constexpr int kSystemCallStop = SIGTRAP | 0x80;

struct Process {
    std::string program;
    int calls = 0;
    bool fails = false;  ///< The call that it is in.
};

struct Fault {
    long number;
    int error;  ///< 0 kills.
};

/// The command line with blanks between its words, and no line ends.
std::string program_of(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/cmdline", std::ios::binary);
    std::string text(std::istreambuf_iterator<char>(file), {});
    for (char& c : text) {
        c = c == '\0' || c == '\n' ? ' ' : c;
    }
    return text.substr(0, 100);
}

class Tracer {
public:
    Tracer(const char* journal, Fault fault) : journal_(journal), fault_(fault) {}

    /// The status of the command.
    int follow(pid_t root) {
        int status = 0;
        for (pid_t pid; (pid = waitpid(-1, &status, __WALL)) > 0;) {
            if (WIFSTOPPED(status)) {
                go_on(pid, WSTOPSIG(status), status >> 16);
                continue;
            }
            processes_.erase(pid);
            if (pid == root) {
                break;
            }
        }
        release_others();
        return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    }

private:
    void go_on(pid_t pid, int signal, int event) {
        const auto [entry, is_new] = processes_.try_emplace(pid);
        if (is_new || event == PTRACE_EVENT_EXEC) {
            entry->second = {program_of(pid)};
        }
        if (signal == kSystemCallStop) {
            meet_call(pid, entry->second);
        }
        const bool is_ours = signal == kSystemCallStop || event != 0;
        ptrace(PTRACE_SYSCALL, pid, nullptr, is_ours ? 0 : signal);
    }

    void meet_call(pid_t pid, Process& process) {
        __ptrace_syscall_info info{};
        ptrace(PTRACE_GET_SYSCALL_INFO, pid, sizeof(info), &info);
        if (info.op == PTRACE_SYSCALL_INFO_EXIT && process.fails) {
            change(pid,
                   [this](user_regs_struct& registers) { registers.rax = -static_cast<long>(fault_.error); });
            process.fails = false;
        }
        if (info.op != PTRACE_SYSCALL_INFO_ENTRY) {
            return;
        }
        ++count_;
        ++process.calls;
        if (fault_.number == 0 || count_ <= fault_.number) {
            journal_ << count_ << ' ' << pid << ' ' << process.calls << ' ' << info.entry.nr << ' '
                     << process.program << '\n';
        }
        if (count_ != fault_.number) {
            return;
        }
        if (fault_.error == 0) {
            kill(pid, SIGKILL);
            return;
        }
        change(pid,
               [](user_regs_struct& registers) { registers.orig_rax = -1UL; });  // no such call: not made
        process.fails = true;
    }

    template <class Change>
    void change(pid_t pid, Change change_registers) {
        user_regs_struct registers{};
        ptrace(PTRACE_GETREGS, pid, nullptr, &registers);
        change_registers(registers);
        ptrace(PTRACE_SETREGS, pid, nullptr, &registers);
    }

    void release_others() {
        for (const auto& [pid, process] : processes_) {
            int status = 0;
            ptrace(PTRACE_INTERRUPT, pid, nullptr, nullptr);
            if (waitpid(pid, &status, __WALL) == pid && WIFSTOPPED(status)) {
                const int signal =
                    status >> 16 == 0 && WSTOPSIG(status) != kSystemCallStop ? WSTOPSIG(status) : 0;
                ptrace(PTRACE_DETACH, pid, nullptr, signal);
            }
        }
    }

    std::ofstream journal_;
    const Fault fault_;
    long count_ = 0;
    std::map<pid_t, Process> processes_;
};

/// A child that runs the command once it is traced.
pid_t start(char** command) {
    int gate[2];
    if (pipe(gate) != 0) {
        return -1;
    }
    const pid_t child = fork();
    if (child == 0) {
        char go = 0;
        close(gate[1]);
        (void)!read(gate[0], &go, 1);
        close(gate[0]);
        execvp(command[0], command);
        _exit(127);
    }
    const bool traced = child > 0 && ptrace(PTRACE_SEIZE, child, nullptr, kOptions) == 0;
    close(gate[0]);
    close(gate[1]);
    return traced ? child : -1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 5) {
        fprintf(stderr, "usage: fault_injector JOURNAL NUMBER kill|ERRNO COMMAND [ARG]...\n");
        return 2;
    }
    const std::string action = argv[3];
    const pid_t root = start(argv + 4);
    if (root < 0) {
        perror("fault_injector");
        return 2;
    }
    return Tracer(argv[1], {atol(argv[2]), action == "kill" ? 0 : atoi(argv[3])}).follow(root);
}

// Finding processes by what /proc tells of them.
#include "utils/proc_lookup.h"

#include <stdlib.h>

#include <optional>
#include <sstream>

#include "log.h"
#include "utils/file_io.h"
#include "utils/files.h"
#include "utils/handles.h"
#include "utils/strings.h"

namespace {

std::string first_line(const std::string& text) {
    return text.substr(0, text.find('\n'));
}

std::optional<std::string> proc_file(int pid, const char* name) {
    return nm::read_file("/proc/" + std::to_string(pid) + "/" + name);
}

bool has_args(const std::string& cmdline, const std::vector<std::string>& args) {
    std::istringstream words(cmdline);
    std::string word;
    std::getline(words, word, '\0');  // The program's name.
    std::size_t found = 0;
    while (found < args.size() && std::getline(words, word, '\0')) {
        found += word == args[found] ? 1 : 0;
    }
    return found == args.size();
}

int check_args(int pid, const std::vector<std::string>& args) {
    const std::optional<std::string> cmdline = proc_file(pid, "cmdline");
    if (!cmdline) {
        return -6;
    }
    if (cmdline->empty()) {
        return -7;
    }
    return has_args(*cmdline, args) ? pid : -8;
}

int check_process(int pid, const std::string& expected, const std::vector<std::string>& args) {
    const std::optional<std::string> text = proc_file(pid, "comm");
    if (!text) {
        return -3;
    }
    const std::string comm = first_line(*text);
    if (comm.empty()) {
        return -4;
    }
    if (comm != expected) {
        return -5;
    }
    return args.empty() ? pid : check_args(pid, args);
}

template <class Predicate>
int find_process(Predicate matches) {
    nm::Directory proc("/proc");
    while (const dirent* entry = proc ? proc.next() : nullptr) {
        const int pid = atoi(entry->d_name);
        if (pid >= 1 && matches(pid)) {
            return pid;
        }
    }
    return -1;
}

bool is_address_daemon(int pid, const std::string& ifname) {
    const std::string title = first_line(proc_file(pid, "cmdline").value_or(""));
    return title.substr(0, title.find(' ')) == "avahi-autoipd:" && title.find(ifname) != std::string::npos &&
           title.find("callout") == std::string::npos;
}

}  // namespace

int checkPidFileByCmdArgs(std::string pidfile, std::string comm, std::vector<std::string> args) {
    NM_LOG(Debug) << "Enter";
    const std::optional<std::string> text = nm::read_file(pidfile);
    if (!text) {
        return NM_EXIT(-1);
    }
    const std::string line = first_line(*text);
    if (line.empty()) {
        return NM_EXIT(-2);
    }
    const int pid = string_to_int(line);
    return NM_EXIT(pid < 0 ? pid : check_process(pid, comm, args));
}

int getProcIdByCmdArgs(std::string comm, std::vector<std::string> args) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(find_process([&](int pid) { return check_process(pid, comm, args) == pid; }));
}

int get_avahiProcId(std::string ifname) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(find_process([&](int pid) { return is_address_daemon(pid, ifname); }));
}

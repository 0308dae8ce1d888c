// nm_bin: the library's exported entries as commands of an operator's shell.
#include <fcntl.h>
#include <getopt.h>
#include <networkinterface.h>
#include <unistd.h>

#include <array>
#include <iostream>
#include <string>

#include "nm_bin/entries.h"

namespace {

using nm_bin::Arguments;
using nm_bin::entries;
using nm_bin::Entry;

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

void print_usage(std::ostream& out) {
    out << "usage: nm_bin [--json] COMMAND ARGUMENT...\n"
           "       nm_bin --help | --version\n"
           "\n"
           "Runs one entry of the network configuration library. The request is given as text, as the name "
           "of a\n"
           "file (@FILE) or on standard input (-), and looks like\n"
           "\n"
           "  {\"PORT1\": {\"ops\": 4, \"act\": 3, \"path\": \"/etc/networkmanagement/device_info.json\"}}\n"
           "\n"
           "act 1 adds, 2 deletes, 3 alters; ops is the mask of what changed; path holds the new state.\n"
           "The result is one line: number, name, meaning. Exit status: 0 success, 1 failure, 2 usage.\n"
           "\n"
           "commands:\n";
    for (const Entry& command : entries()) {
        out << "  " << command.name << " " << command.arguments << "\n      " << command.help << "\n";
    }
    out << "\noptions:\n"
           "  --json     print the result as a JSON object\n"
           "  --help     this text\n"
           "  --version  the version\n";
}

int usage_error(const std::string& message) {
    std::cerr << "nm_bin: " << message << "\nTry 'nm_bin --help'.\n";
    return kExitUsage;
}

void print_result(int code, bool as_json) {
    const ResultCode result = describe_result(code);
    if (as_json) {
        std::cout << "{\"code\":" << code << ",\"name\":\"" << result.name << "\",\"meaning\":\""
                  << result.meaning << "\"}\n";
        return;
    }
    std::cout << code << " " << result.name << " " << result.meaning << "\n";
}

int run_entry(const std::string& name, Arguments words, bool as_json) {
    const Entry* const entry = nm_bin::find_entry(name);
    if (entry == nullptr) {
        return usage_error("unknown command: " + name);
    }
    const std::string failure = nm_bin::take_arguments(*entry, words);
    if (!failure.empty()) {
        return usage_error(failure);
    }
    const int code = entry->run(words);
    print_result(code, as_json);
    return code >= 0 ? kExitOk : kExitFailed;
}

/// The library's lock of a port is a descriptor that has to be above 0, and children of the library write to
/// standard error: all three standard descriptors have to be there.
void open_standard_descriptors() {
    int fd = open("/dev/null", O_RDWR);
    while (fd >= 0 && fd <= STDERR_FILENO) {
        fd = open("/dev/null", O_RDWR);
    }
    if (fd > STDERR_FILENO) {
        close(fd);
    }
}

}  // namespace

int main(int argc, char** argv) {
    open_standard_descriptors();
    static const std::array<option, 4> options{
        option{"json", no_argument, nullptr, 'j'},
        option{"help", no_argument, nullptr, 'h'},
        option{"version", no_argument, nullptr, 'v'},
        option{nullptr, 0, nullptr, 0},
    };
    bool as_json = false;
    opterr = 0;
    for (int choice = 0; (choice = getopt_long(argc, argv, "+jhv", options.data(), nullptr)) != -1;) {
        switch (choice) {
            case 'j':
                as_json = true;
                break;
            case 'h':
                print_usage(std::cout);
                return kExitOk;
            case 'v':
                std::cout << "nm_bin " << NM_VERSION << "\n";
                return kExitOk;
            default:
                return usage_error("unknown option: " + std::string(argv[optind - 1]));
        }
    }
    if (optind == argc) {
        return usage_error("no command given");
    }
    return run_entry(argv[optind], Arguments(argv + optind + 1, argv + argc), as_json);
}

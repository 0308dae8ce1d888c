// nm_bin: the library's exported entries as commands of an operator's shell.
#include <fcntl.h>
#include <getopt.h>
#include <networkinterface.h>
#include <unistd.h>

#include <array>
#include <iostream>
#include <string>

#include "nm_bin/commands.h"

namespace {

using nm_bin::Arguments;
using nm_bin::Command;
using nm_bin::commands;
using nm_bin::entries;
using nm_bin::Entry;
using nm_bin::kExitOk;
using nm_bin::usage_error;

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
    for (const Command& command : commands()) {
        out << "  " << command.name << " " << command.arguments << "\n      " << command.help << "\n";
    }
    for (const Entry& command : entries()) {
        out << "  " << command.name << " " << command.arguments << "\n      " << command.help << "\n";
    }
    out << "\noptions:\n"
           "  --json     print the result as a JSON object\n"
           "  --help     this text\n"
           "  --version  the version\n";
}

int run_command(const std::string& name, Arguments words, bool as_json) {
    const Command* const command = nm_bin::find_command(name);
    if (command != nullptr) {
        return command->run(words, as_json);
    }
    const Entry* const entry = nm_bin::find_entry(name);
    if (entry == nullptr) {
        return usage_error("unknown command: " + name);
    }
    const std::string failure = nm_bin::take_arguments(*entry, words);
    if (!failure.empty()) {
        return usage_error(failure);
    }
    return nm_bin::print_result(entry->run(words), as_json);
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
    return run_command(argv[optind], Arguments(argv + optind + 1, argv + argc), as_json);
}

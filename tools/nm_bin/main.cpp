// nm_bin: the network configuration in an operator's shell, by commands for people and by the library's
// entries.
#include <fcntl.h>
#include <networkinterface.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <string>

#include "nm_bin/commands.h"
#include "nm_bin/console.h"
#include "nm_bin/entries.h"

namespace {

using nm_bin::Arguments;
using nm_bin::Options;

/// The command line: options anywhere, so that words which look like one (a code, a request) are told apart
/// by the command that takes them.
struct Line {
    Options options;
    Arguments words;
    bool help = false;
    bool version = false;
    std::string complaint;
};

template <class Row>
void print_rows(const std::vector<Row>& rows) {
    for (const Row& row : rows) {
        std::cout << "  " << row.name << (row.arguments.empty() ? "" : " ") << row.arguments << "\n      "
                  << row.help << "\n";
    }
}

void print_usage() {
    std::cout
        << "usage: nm_bin [OPTION]... COMMAND ARGUMENT...\n"
           "       nm_bin --help | --version\n"
           "\n"
           "Commands in small letters work on what is stored and what runs; the others run one entry of the\n"
           "library each. A REQUEST is given as text, as the name of a file (@FILE) or on standard input "
           "(-),\n"
           "and looks like\n"
           "\n"
           "  {\"PORT1\": {\"ops\": 4, \"act\": 3, \"path\": \"/etc/networkmanagement/device_info.json\"}}\n"
           "\n"
           "act 1 adds, 2 deletes, 3 alters; ops is the mask of what changed; path holds the new state.\n"
           "The result is one line: number, name, meaning; with several targets one more for each. What "
           "failed\n"
           "is explained on standard error. Exit status: 0 success, 1 failure, 2 usage; 69 a service is "
           "down,\n"
           "72 a directory is missing, 75 a lock is held, 77 not root.\n"
           "\n"
           "commands:\n";
    print_rows(nm_bin::commands());
    print_rows(nm_bin::entries());
    std::cout
        << "\noptions:\n"
           "  --json       print results as JSON, which tables are anyway where the output is no terminal\n"
           "  --text       print tables as text even there\n"
           "  --dry-run    of set, add, delete, undo and migrate: show the change, and make none\n"
           "  -f, --follow       of log: go on with what is logged from now on\n"
           "  -n, --lines COUNT  of log: so many lines (20)\n"
           "  --in DEVICE        of explain: the packet comes in by it\n"
           "  --watch            of status: show it anew every two seconds\n"
           "  --picture FILE     of status: draw it into this file (SVG)\n"
           "  --out FILE         of trace: write the steps into this file, for viewers of traces (JSON)\n"
           "  --help       this text\n"
           "  --version    the version\n";
}

/// An option without a value, and what it sets. Those `of_commands` are words like others behind an entry.
struct Flag {
    std::string_view letter;
    std::string_view name;
    bool of_commands;
    void (*set)(Line& line);
};

constexpr std::array kFlags{
    Flag{"-j", "--json", false, [](Line& line) { line.options.json = true; }},
    Flag{"-h", "--help", false, [](Line& line) { line.help = true; }},
    Flag{"-V", "--version", false, [](Line& line) { line.version = true; }},
    Flag{"-v", "--version", false, [](Line& line) { line.version = true; }},
    Flag{"", "--text", true, [](Line& line) { line.options.text = true; }},
    Flag{"", "--dry-run", true, [](Line& line) { line.options.dry_run = true; }},
    Flag{"-f", "--follow", true, [](Line& line) { line.options.follow = true; }},
    Flag{"", "--watch", true, [](Line& line) { line.options.watch = true; }},
};

bool take_flag(const std::string& word, Line& line) {
    const bool has_command = !line.words.empty();
    const bool is_entry = has_command && nm_bin::find_command(line.words[0]) == nullptr;
    for (const Flag& flag : kFlags) {
        const bool is_letter = word == flag.letter && (!has_command || flag.of_commands);
        if ((word == flag.name || is_letter) && !(is_entry && flag.of_commands)) {
            flag.set(line);
            return true;
        }
    }
    return false;
}

bool take_count(const std::string& word, Line& line) {
    constexpr size_t kMostDigits = 6;
    const bool is_number = !word.empty() && word.size() <= kMostDigits &&
                           word.find_first_not_of("0123456789") == std::string::npos;
    if (is_number) {
        line.options.lines = std::stoul(word);
    }
    return is_number;
}

bool is_command(const Line& line, const char* name) {
    return !line.words.empty() && line.words[0] == name;
}

bool take_picture(const std::string& word, Line& line) {
    line.options.picture = word;
    return !word.empty();
}

bool take_out(const std::string& word, Line& line) {
    line.options.out = word;
    return !word.empty();
}

bool take_device(const std::string& word, Line& line) {
    line.options.device = word;
    return !word.empty();
}

/// An option of one command with a value behind it.
struct ValueOption {
    const char* command;
    const char* letter;
    const char* name;
    bool (*take)(const std::string& word, Line& line);
    const char* needs;
};

constexpr std::array kValueOptions{
    ValueOption{"log", "-n", "--lines", take_count, " takes a number"},
    ValueOption{"status", "--picture", "--picture", take_picture, " takes a file"},
    ValueOption{"explain", "--in", "--in", take_device, " takes a device"},
    ValueOption{"trace", "--out", "--out", take_out, " takes a file"}};

const ValueOption* find_value_option(const std::string& word, const Line& line) {
    const auto* const found =
        std::find_if(kValueOptions.begin(), kValueOptions.end(), [&](const ValueOption& option) {
            return is_command(line, option.command) && (word == option.letter || word == option.name);
        });
    return found != kValueOptions.end() ? found : nullptr;
}

Line read_line(const Arguments& given) {
    Line line;
    bool takes_options = true;
    for (size_t i = 0; i < given.size() && line.complaint.empty(); ++i) {
        const std::string& word = given[i];
        // What is to be completed may be an option.
        takes_options = takes_options && !is_command(line, "complete");
        const ValueOption* const option = takes_options ? find_value_option(word, line) : nullptr;
        if (takes_options && word == "--") {
            takes_options = false;
        } else if (option != nullptr) {
            ++i;
            line.complaint = i < given.size() && option->take(given[i], line) ? "" : word + option->needs;
        } else if (takes_options && take_flag(word, line)) {
            continue;
        } else if (takes_options && line.words.empty() && word.rfind('-', 0) == 0) {
            line.complaint = "unknown option: " + word;
        } else {
            line.words.push_back(word);
        }
    }
    return line;
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
    const Line line = read_line(Arguments(argv + 1, argv + argc));
    if (!line.complaint.empty()) {
        return nm_bin::usage_error(line.complaint);
    }
    if (line.help) {
        print_usage();
        return nm_bin::kExitOk;
    }
    if (line.version) {
        std::cout << "nm_bin " << NM_VERSION << "\n";
        return nm_bin::kExitOk;
    }
    return line.words.empty() ? nm_bin::usage_error("no command given")
                              : nm_bin::run_words(line.words, line.options);
}

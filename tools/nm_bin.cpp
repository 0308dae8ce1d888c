// nm_bin: the library's exported entries as commands of an operator's shell.
#include <fcntl.h>
#include <getopt.h>
#include <networkinterface.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

struct Command {
    std::string_view name;
    int (*run)(char* json);
    std::string_view help;
};

constexpr std::array kCommands{
    Command{"Setup_wanif", Setup_wanif, "add, delete or alter WAN ports (MTU, QoS, TCP buffers)"},
};

void print_usage(std::ostream& out) {
    out << "usage: nm_bin [--json] COMMAND JSON|@FILE|-\n"
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
    for (const Command& command : kCommands) {
        out << "  " << command.name << "  " << command.help << "\n";
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

std::string read_all(std::istream& in) {
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

/// The request text that an argument stands for; false if its file cannot be read.
bool read_request(const std::string& argument, std::string& text) {
    if (argument == "-") {
        text = read_all(std::cin);
        return true;
    }
    if (argument.empty() || argument.front() != '@') {
        text = argument;
        return true;
    }
    std::ifstream file(argument.substr(1), std::ios::binary);
    if (!file) {
        return false;
    }
    text = read_all(file);
    return !file.bad();
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

int run_command(const std::string& name, const std::string& argument, bool as_json) {
    for (const Command& command : kCommands) {
        if (command.name != name) {
            continue;
        }
        std::string text;
        if (!read_request(argument, text)) {
            return usage_error("cannot read " + argument.substr(1));
        }
        const int code = command.run(text.data());
        print_result(code, as_json);
        return code >= 0 ? kExitOk : kExitFailed;
    }
    return usage_error("unknown command: " + name);
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
    const std::vector<std::string> words(argv + optind, argv + argc);
    if (words.size() != 2) {
        return usage_error(words.empty() ? "no command given" : "a command takes one request");
    }
    return run_command(words[0], words[1], as_json);
}

// vsh: calls one method of a service on the bus and prints the reply.
#include <getopt.h>
#include <json/json.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>

#include "vservice.h"

namespace {

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;
constexpr int kDefaultTimeout = 60;
constexpr char kSocketDirectory[] = "/var/run/vservice/";
constexpr char kUsage[] =
    "usage: vsh [--json] [--timeout SECONDS] SERVICE.METHOD [JSON|@FILE|-]\n"
    "       vsh --help | --version\n";
constexpr char kHelp[] =
    "Calls one method of a service on the bus and prints the reply.\n"
    "\n"
    "  JSON               the request text; without it the request is empty\n"
    "  @FILE              take the request from FILE\n"
    "  -                  take the request from standard input\n"
    "  --json             print the reply as it came, also on a terminal\n"
    "  --timeout SECONDS  give up after SECONDS (60)\n"
    "\n"
    "Exit status: 0 success, 1 a failed call or an error reply, 2 usage.\n";

struct Call {
    std::string service;
    std::string method;
    std::string body;
    int timeout = kDefaultTimeout;
    bool as_it_came = false;
};

int fail(const std::string& text, int status = kExitFailure) {
    std::cerr << "vsh: " << text << '\n';
    return status;
}

int usage_error(const std::string& text) {
    fail(text);
    std::cerr << kUsage;
    return kExitUsage;
}

// Services and methods may both contain dots: the longest service that is running wins, and where none
// runs the last dot parts the two.
std::size_t split_point(const std::string& target) {
    for (std::size_t dot = target.rfind('.'); dot != std::string::npos && dot > 0;
         dot = target.rfind('.', dot - 1)) {
        const std::string socket_path = kSocketDirectory + target.substr(0, dot) + ".sock";
        if (access(socket_path.c_str(), F_OK) == 0) {
            return dot;
        }
    }
    return target.rfind('.');
}

bool split_target(const std::string& target, Call& call) {
    const std::size_t dot = split_point(target);
    if (dot == std::string::npos || dot == 0 || dot + 1 == target.size()) {
        return false;
    }
    call.service = target.substr(0, dot);
    call.method = target.substr(dot + 1);
    return true;
}

bool read_all(std::istream& stream, std::string& text) {
    text.assign(std::istreambuf_iterator<char>(stream), {});
    return !stream.bad();
}

bool read_body(const std::string& argument, std::string& body) {
    if (argument == "-") {
        return read_all(std::cin, body);
    }
    if (argument.empty() || argument.front() != '@') {
        body = argument;
        return true;
    }
    std::ifstream file(argument.substr(1), std::ios::binary);
    return file.is_open() && read_all(file, body);
}

std::optional<int> parse_timeout(const std::string& text) {
    constexpr std::size_t kMaxDigits = 6;
    const bool plain = !text.empty() && text.size() <= kMaxDigits &&
                       text.find_first_not_of("0123456789") == std::string::npos;
    const int seconds = plain ? std::stoi(text) : 0;
    return seconds > 0 ? std::optional(seconds) : std::nullopt;
}

// The reply as an object; a null value if it is none.
Json::Value parse_reply(const std::string& reply) {
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    Json::Value value;
    try {
        const bool is_json = reader->parse(reply.data(), reply.data() + reply.size(), &value, nullptr);
        return is_json && value.isObject() ? value : Json::Value();
    } catch (const Json::Exception&) {
        return {};
    }
}

// The call succeeded only if the reply says so itself: an object whose `error` is absent or 0.
bool is_success(const Json::Value& reply) {
    const Json::Value error = reply.isObject() ? reply.get("error", 0) : Json::Value();
    return error.isIntegral() && error == 0;
}

// People get the reply indented; programs as it came.
int print_reply(const std::string& reply, bool as_it_came) {
    const Json::Value value = parse_reply(reply);
    const bool is_for_people = !as_it_came && isatty(STDOUT_FILENO) == 1 && value.isObject();
    const std::string text = is_for_people ? Json::StyledWriter().write(value) : reply;
    std::cout << text;
    if (text.empty() || text.back() != '\n') {
        std::cout << '\n';
    }
    if (!std::cout.flush()) {
        return fail("cannot write the reply");
    }
    return is_success(value) ? 0 : kExitFailure;
}

int run(const Call& call) {
    const std::unique_ptr<vs_io, void (*)(vs_io*)> io(vs_io_create(), vs_io_free);
    if (io == nullptr || vs_io_write(io.get(), call.body.data(), call.body.size()) != 0) {
        return fail("no memory for the request");
    }
    const int result = vs_call(call.service.c_str(), call.method.c_str(), io.get(), call.timeout, -1);
    if (result != 0) {
        return fail(call.service + "." + call.method + ": " + std::strerror(-result));
    }
    char* text = nullptr;
    const std::size_t length = vs_io_read(io.get(), &text);
    return print_reply(text == nullptr ? std::string() : std::string(text, length), call.as_it_came);
}

int run_arguments(Call& call, int argc, char** argv) {
    if (argc < 1 || argc > 2) {
        return usage_error(argc < 1 ? "SERVICE.METHOD is missing" : "too many arguments");
    }
    if (!split_target(argv[0], call)) {
        return usage_error(std::string("not SERVICE.METHOD: ") + argv[0]);
    }
    if (argc == 2 && !read_body(argv[1], call.body)) {
        return fail(std::string("cannot read ") + argv[1] + ": " + std::strerror(errno));
    }
    return run(call);
}

}  // namespace

int main(int argc, char** argv) {
    const option options[] = {{"help", no_argument, nullptr, 'h'},
                              {"version", no_argument, nullptr, 'V'},
                              {"json", no_argument, nullptr, 'j'},
                              {"timeout", required_argument, nullptr, 't'},
                              {nullptr, 0, nullptr, 0}};
    Call call;
    opterr = 0;
    // "+": a request text that begins with a dash is an argument, not an option.
    for (int letter; (letter = getopt_long(argc, argv, "+hvVjt:", options, nullptr)) != -1;) {
        if (letter == 'h') {
            std::cout << kUsage << '\n' << kHelp;
            return 0;
        }
        if (letter == 'V' || letter == 'v') {
            std::cout << "vsh " NM_VERSION "\n";
            return 0;
        }
        if (letter == 'j') {
            call.as_it_came = true;
            continue;
        }
        const std::optional<int> seconds = letter == 't' ? parse_timeout(optarg) : std::nullopt;
        if (!seconds) {
            return usage_error(letter == 't' ? "SECONDS is a number from 1 to 999999" : "unknown option");
        }
        call.timeout = *seconds;
    }
    return run_arguments(call, argc - optind, argv + optind);
}

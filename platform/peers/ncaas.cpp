// ncaas: the configuration service. It tells what the device is, and reads and writes the configuration
// files for callers on the service bus.
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <limits>

#include "store.h"
#include "vservice.h"

namespace {

using namespace ncaas;

constexpr char kServiceName[] = "ncaas";

// What a method and a signal handler reach without an argument of their own.
std::string device_path = "/etc/networkmanagement/ncaas.conf";
vs_server* running_server = nullptr;

// Read anew at each call, so that an edit of the file needs no restart.
std::string device_fact(const char* key) {
    const auto pairs = read_pairs(device_path);
    const auto row = pairs.find(key);
    if (row == pairs.end() || row->second.empty()) {
        throw Refusal(std::string(key) + " is not set in " + device_path);
    }
    return row->second;
}

int device_number(const char* key) {
    const std::string text = device_fact(key);
    char* end = nullptr;
    errno = 0;
    const long number = std::strtol(text.c_str(), &end, 10);
    if (*end != '\0' || errno != 0 || number < 0 || number > std::numeric_limits<int>::max()) {
        throw Refusal(std::string(key) + " is no number in " + device_path + ": " + text);
    }
    return static_cast<int>(number);
}

std::string requested_path(const Json::Value& request) {
    if (!request.isObject() || !request["path"].isString()) {
        throw Refusal("the request names no path");
    }
    const std::string path = request["path"].asString();
    check_path(path);
    return path;
}

Json::Value get_model(const Json::Value&) {
    return device_fact("model");
}

Json::Value get_devid(const Json::Value&) {
    return device_number("devid");
}

Json::Value get_local_mgmt(const Json::Value&) {
    return device_number("local_mgmt");
}

Json::Value read_json(const Json::Value& request) {
    return parse_json(read_file(requested_path(request)));
}

Json::Value write_json(const Json::Value& request) {
    const std::string path = requested_path(request);
    if (!request.isMember("data")) {
        throw Refusal("the request holds no data for " + path);
    }
    replace_file(path, to_line(request["data"]));
    return "";
}

Json::Value read_ini(const Json::Value& request) {
    Json::Value object(Json::objectValue);
    for (const auto& [key, value] : read_pairs(requested_path(request))) {
        object[key] = value;
    }
    return object;
}

// The files that are served are the service's own store, so one that can be read is up to date.
Json::Value sync_file(const Json::Value& request) {
    (void)read_file(requested_path(request));
    return "";
}

Json::Value envelope(int error, const Json::Value& payload) {
    Json::Value reply;
    reply["error"] = error;
    reply["data"] = payload;
    return reply;
}

using Answer = Json::Value (*)(const Json::Value& request);

// jsoncpp throws too, on a text that is nested too deep.
Json::Value reply_to(const std::string& text, Answer answer) {
    try {
        return envelope(0, answer(text.empty() ? Json::Value(Json::objectValue) : parse_json(text)));
    } catch (const std::exception& failure) {
        std::cerr << std::string(kServiceName) + ": " + failure.what() + '\n';
        return envelope(-1, failure.what());
    }
}

template <Answer answer>
int serve(vs_io* io, int socket) {
    char* text = nullptr;
    const std::size_t length = vs_io_read(io, &text);
    const std::string reply = to_line(reply_to(std::string(text == nullptr ? "" : text, length), answer));
    vs_io_realloc(io, 0);
    vs_io_write(io, reply.data(), reply.size());
    const int result = vs_reply(io);
    vs_io_free(io);
    close(socket);
    return result;
}

struct Method {
    const char* name;
    vs_method serve;
};

constexpr Method kMethods[] = {
    {"get_model", serve<get_model>},           {"get_devid", serve<get_devid>},
    {"get_local_mgmt", serve<get_local_mgmt>}, {"read_json", serve<read_json>},
    {"write_json", serve<write_json>},         {"read_ini", serve<read_ini>},
    {"sync_file", serve<sync_file>},
};

void stop_on_signal(int) {
    vs_server_stop(running_server);
}

void catch_signals() {
    struct sigaction action {};
    action.sa_handler = stop_on_signal;
    for (const int number : {SIGTERM, SIGINT}) {
        sigaction(number, &action, nullptr);
    }
}

int run() {
    running_server = vs_server_create(kServiceName);
    if (running_server == nullptr) {
        std::cerr << kServiceName << ": cannot listen: " << std::strerror(errno) << '\n';
        return 1;
    }
    for (const Method& method : kMethods) {
        vs_server_add_method(running_server, method.name, method.serve);
    }
    catch_signals();
    const int result = vs_server_run(running_server);
    if (result != 0) {
        std::cerr << kServiceName << ": cannot serve: " << std::strerror(-result) << '\n';
    }
    vs_server_free(running_server);
    return result == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    const bool file_given = argc == 3 && std::strcmp(argv[1], "-c") == 0;
    if (argc != 1 && !file_given) {
        std::cerr << "usage: ncaas [-c FILE]\n";
        return 2;
    }
    if (file_given) {
        device_path = argv[2];
    }
    return run();
}

// ncaas: the configuration service. It tells what the device is, and reads and writes the configuration
// files for callers on the service bus.
#include <cerrno>
#include <cstring>
#include <iostream>
#include <limits>

#include "service.h"
#include "store.h"

namespace {

using namespace peers;

// What a method reaches without an argument of its own.
std::string device_path = "/etc/networkmanagement/ncaas.conf";

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

const std::vector<Method> kMethods{
    {"get_model", serve<get_model>},           {"get_devid", serve<get_devid>},
    {"get_local_mgmt", serve<get_local_mgmt>}, {"read_json", serve<read_json>},
    {"write_json", serve<write_json>},         {"read_ini", serve<read_ini>},
    {"sync_file", serve<sync_file>},
};

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
    return run_service("ncaas", kMethods);
}

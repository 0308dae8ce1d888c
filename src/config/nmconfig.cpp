// The JSON store.
#include "config/nmconfig.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <sstream>
#include <vector>

#include "config/document_file.h"
#include "config/document_scope.h"
#include "log.h"
#include "peers/bus/bus_exchange.h"
#include "peers/bus/service_bus.h"
#include "result_codes.h"
#include "utils/Utils.h"
#include "utils/call_notes.h"
#include "utils/file_io.h"
#include "utils/handles.h"
#include "utils/json_text.h"

namespace {

constexpr const char* kServiceMarker = "/usr/bin/python";
constexpr const char* kDeviceSnapshotPath = "/var/run/network/device_info.curr";
constexpr size_t kKeptFiles = 10;

bool has_service() {
    return is_file_exists(kServiceMarker);
}

int parse_answer(const std::string& text, Json::Value& answer, int& error) {
    if (!nm::read_envelope(text, answer, error)) {
        NM_LOG(Error) << "JSON reader parse fail!";
        return NM_ERR_PARSE;
    }
    return NM_OK;
}

int read_by_route(const std::string& path, Json::Value& out) {
    const nm::Step step("document", "load", path);
    if (has_service() && _json_ncaas_to_mem(path, out) == NM_OK) {
        return NM_OK;
    }
    return _json_file_to_mem(path, out);
}

}  // namespace

int json_file_to_mem(std::string path, Json::Value& out) {
    return nm::DocumentScope::read(path, out, read_by_route);
}

int json_mem_to_file(std::string path, Json::Value& value, bool force_file) {
    if (!force_file && has_service() && _json_mem_to_ncaas(path, value) == NM_OK) {
        return NM_OK;
    }
    return _json_mem_to_file(path, value);
}

int _json_file_to_mem(std::string path, Json::Value& out) {
    const std::string text = readValue(path, true);
    if (text.empty()) {
        NM_LOG(Error) << path << " is not found";
        return NM_ERR_NOT_FOUND;
    }
    NM_LOG(Debug) << "Loading " << path;
    if (!nm::parse_json(text, out)) {
        NM_LOG(Error) << "Json reader parse fail!";
        return NM_ERR_PARSE;
    }
    NM_LOG(Debug) << "JSON Length: " << text.size();
    return NM_OK;
}

int _json_mem_to_file(std::string path, Json::Value& value) {
    nm::LockGuard lock(path);
    if (lock.handle() < 0) {
        return lock.handle();
    }
    // Releasing the lock decides the result, as everywhere where a write is locked; a failed write stands
    // in the log.
    (void)nm::replace_document(path, value);
    return lock.release();
}

int _json_ncaas_to_mem(std::string path, Json::Value& out) {
    std::string text;
    const int ret = nm::exchange_about_file("read_json", path, "{\"path\": \"" + path + "\"}", text);
    if (ret != NM_OK) {
        return ret;
    }
    if (text.empty()) {
        NM_LOG(Error) << "JSON file may be empty";
        return NM_ERR_EMPTY;
    }
    Json::Value reply;
    int error = 0;
    const int parse_ret = parse_answer(text, reply, error);
    if (parse_ret != NM_OK) {
        return parse_ret;
    }
    if (error != 0) {
        NM_LOG(Error) << "Get error: " << error;
        return NM_ERR_PARSE;
    }
    out = reply["data"];
    return NM_OK;
}

int _json_mem_to_ncaas(std::string path, Json::Value& value) {
    Json::Value request;
    request["path"] = path;
    request["data"] = value;
    const std::string text = nm::write_compact_json(request);
    if (text.empty()) {
        NM_LOG(Error) << "JSON dump to buffer failed";
        return NM_ERR_WRITE;
    }
    NM_LOG(Debug) << "Saving " << path << ", JSON Length: " << text.size();
    std::string answer;
    const int ret = nm::exchange_about_file("write_json", path, text, answer);
    if (ret != NM_OK || answer.empty()) {
        return ret;
    }
    Json::Value reply;
    int error = 0;
    const int parse_ret = parse_answer(answer, reply, error);
    if (parse_ret != NM_OK) {
        return parse_ret;
    }
    if (error != 0) {
        NM_LOG(Error) << "Get error: " << nm::show_json(reply["data"]);
        return NM_ERR_BUS_CALL;
    }
    return NM_OK;
}

int ini_conf_read(std::string path, std::unordered_map<std::string, std::string>& out) {
    if (!is_file_exists(path)) {
        NM_LOG(Error) << path << " is not existed!";
        return NM_ERR_NOT_FOUND;
    }
    const std::optional<std::string> text = nm::read_file(path);
    if (!text) {
        NM_LOG(Error) << "Cannot open " << path;
        return NM_ERR_OPEN;
    }
    if (text->empty()) {
        NM_LOG(Debug) << path << " is empty file; do nothing.";
        return NM_OK;
    }
    out.clear();
    std::istringstream lines(*text);
    for (std::string line; std::getline(lines, line);) {
        const size_t sign = line.find('=');
        if (sign != std::string::npos) {
            out[line.substr(0, sign)] = line.substr(sign + 1);
        }
    }
    return NM_OK;
}

int ini_conf_write(std::string path, std::unordered_map<std::string, std::string>& in) {
    std::string text;
    for (const auto& [key, value] : in) {
        if ((key + value).find('\n') != std::string::npos) {
            NM_LOG(Error) << path << ": the value of [" << key << "] would add a line";
            return NM_ERR_BAD_VALUE;
        }
        text += key + "=" + value + "\n";
    }
    return writeValue(path, text, true);
}

int rotate_config(const char* dir, const char* prefix) {
    if (dir == nullptr || prefix == nullptr) {
        NM_LOG(Error) << "path is Null pointer.";
        return NM_ERR_NULL_ARG;
    }
    nm::Directory directory(dir);
    if (!directory) {
        NM_LOG(Error) << "Directory does not exist. path: " << dir;
        return NM_ERR_NULL_ARG;
    }
    const std::string family = prefix;
    std::vector<std::string> names;
    while (const dirent* entry = directory.next()) {
        const std::string name = entry->d_name;
        if (name != "." && name != ".." && name.compare(0, family.size(), family) == 0) {
            names.push_back(name);
        }
    }
    std::sort(names.begin(), names.end());
    const size_t surplus = names.size() > kKeptFiles ? names.size() - kKeptFiles : 0;
    for (size_t i = 0; i < surplus; ++i) {
        const std::string path = std::string(dir) + "/" + names[i];
        if (remove(path.c_str()) != 0) {
            NM_LOG(Error) << path << " remove fail.";
        }
    }
    return NM_OK;
}

int copy_save_to_curr() {
    NM_LOG(Debug) << "Enter";
    const int ret = copy_file(kDeviceInfoPath, kDeviceSnapshotPath);
    sync_file(kDeviceSnapshotPath);
    return NM_EXIT(ret);
}

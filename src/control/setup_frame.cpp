// The frame of every setup call: entry and request layers.
#include "control/setup_frame.h"

#include "config/actions.h"
#include "config/nmconfig.h"
#include "log.h"
#include "peers/bus/request_waits.h"
#include "peers/logs/logging.h"
#include "result_codes.h"
#include "utils/call_notes.h"
#include "utils/json_text.h"

namespace {

/// What one member of a request asks for.
struct Request {
    uint32_t act = 0;
    uint32_t ops = 0;
};

bool read_number(const Json::Value& member, const std::string& name, const char* key, uint32_t& number) {
    const Json::Value& value = nm::json_member(member, key);
    if (!member.isMember(key)) {
        return true;
    }
    if (!value.isUInt()) {
        NM_LOG(Error) << "[" << name << "]: [" << key << "] is not valid format";
        return false;
    }
    number = value.asUInt();
    return true;
}

int read_request(const Json::Value& member, const std::string& name, Request& request) {
    if (!member.isObject()) {
        NM_LOG(Error) << "[" << name << "] is not valid format";
        return NM_ERR_BAD_FORMAT;
    }
    const bool valid =
        read_number(member, name, "ops", request.ops) && read_number(member, name, "act", request.act);
    return valid ? NM_OK : NM_ERR_BAD_FORMAT;
}

int read_member_path(const Json::Value& member, const std::string& name, std::string& path) {
    if (!member.isObject()) {
        NM_LOG(Error) << "[" << name << "] is not valid format";
        return NM_ERR_BAD_FORMAT;
    }
    if (member.isMember("path") && !member["path"].isString()) {
        NM_LOG(Error) << "[" << name << "]: [path] is not valid format";
        return NM_ERR_BAD_FORMAT;
    }
    path = nm::json_string_or(member, "path", "");
    return NM_OK;
}

/// The path of the first member; a request without members has none.
int read_path(const Json::Value& root, std::string& path) {
    if (root.empty()) {
        return NM_OK;
    }
    const std::string name = root.begin().name();
    const int ret = read_member_path(*root.begin(), name, path);
    if (ret == NM_OK && path.empty()) {
        NM_LOG(Error) << "[" << name << "]: [path] is empty";
    }
    return ret;
}

int load_request(const char* json, Json::Value& root, std::string& path, Json::Value& document) {
    int ret = nm::parse_request(json, root);
    if (ret == NM_OK) {
        ret = read_path(root, path);
    }
    return ret == NM_OK ? json_file_to_mem(path, document) : ret;
}

/// The name in what the compiler makes of a function's signature.
std::string function_name(const std::string& signature) {
    const size_t end = signature.find('(');
    const size_t begin = signature.find_last_of(" :", end);
    return signature.substr(begin + 1, end - begin - 1);
}

}  // namespace

namespace nm {

int parse_request(const char* json, Json::Value& root) {
    if (json == nullptr) {
        NM_LOG(Error) << "json is Null pointer.";
        return NM_ERR_NULL_ARG;
    }
    if (!nm::parse_json(json, root, true)) {
        NM_LOG(Error) << "Json parse failed.";
        return NM_ERR_PARSE;
    }
    if (!root.isObject()) {
        NM_LOG(Error) << "root is not valid format";
        return NM_ERR_BAD_FORMAT;
    }
    return NM_OK;
}

int read_section_member(Json::Value::const_iterator entry, SectionMember& member) {
    Request request;
    member.name = entry.name();
    int ret = read_request(*entry, member.name, request);
    if (ret == NM_OK) {
        ret = read_member_path(*entry, member.name, member.path);
    }
    member.act = request.act;
    member.ops = request.ops;
    return ret;
}

int run_request(const char* json, const RequestFamily& family) {
    Json::Value root;
    std::string path;
    Json::Value document;
    int ret = load_request(json, root, path, document);
    if (ret < 0) {
        return ret;
    }
    uint32_t all_ops = 0;
    bool set_of_ports_changed = false;
    for (auto member = root.begin(); member != root.end(); ++member) {
        ret = work_target(member.name(), [&] {
            Request request;
            const int read = read_request(*member, member.name(), request);
            if (read != NM_OK) {
                return read;
            }
            all_ops |= request.ops;
            set_of_ports_changed = set_of_ports_changed || request.act != ACT_ALT;
            return family.target(member.name(), request.act, request.ops, path, document);
        });
    }
    if ((all_ops & OPT_RATE) == 0 && !set_of_ports_changed) {
        return ret;
    }
    for (const FollowUp follow_up : family.follow_ups) {
        (void)shielded([&] { return follow_up(path); });  // logged where it failed; the ports are set up
    }
    return ret;
}

int run_section_request(const char* json, SectionTarget target) {
    Json::Value root;
    int ret = parse_request(json, root);
    if (ret < 0) {
        return ret;
    }
    for (auto entry = root.begin(); entry != root.end(); ++entry) {
        ret = work_target(entry.name(), [&] {
            SectionMember member;
            const int read = read_section_member(entry, member);
            return read == NM_OK ? target(member.name, member.act, member.ops, member.path) : read;
        });
    }
    return ret;
}

int run_entry(const char* signature, const std::function<int()>& request, const char* category) {
    return shielded([&] {
        INITIALIZE_LOG(category);
        LogStatement(LogLevel::Info, __FILE__, __LINE__, signature) << LogLines{SEPARATE_LINE};
        LogStatement(LogLevel::Debug, __FILE__, __LINE__, signature) << "Enter";
        const RequestWaits waits;
        const Step step("entry", are_steps_watched() ? function_name(signature) : "", "");
        const int ret = step.result(shielded(request));
        return log_exit(ret, __FILE__, __LINE__, signature);
    });
}

}  // namespace nm

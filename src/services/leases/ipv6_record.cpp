// The record of an uplink's IPv6.
#include "services/leases/ipv6_record.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <set>

#include "log.h"
#include "result_codes.h"
#include "services/files/generated_file.h"
#include "utils/file_io.h"
#include "utils/files.h"
#include "utils/json_text.h"
#include "utils/shell_text.h"

namespace {

constexpr const char* kSkipped = "skipped";

int find_path(const std::string& ifname, std::string& path) {
    if (!nm::is_plain(ifname) || ifname.find('/') != std::string::npos) {
        NM_LOG(Error) << "Bad interface name: " << ifname;
        return NM_ERR_BAD_FORMAT;
    }
    path = "/var/run/network/ipv6/" + ifname + ".json";
    return NM_OK;
}

int with_lock(const std::string& ifname, const std::function<int(const std::string& path)>& work) {
    std::string path;
    const int ret = find_path(ifname, path);
    if (ret != NM_OK) {
        return ret;
    }
    const nm::LockGuard lock(path);
    return lock.handle() < 0 ? lock.handle() : work(path);
}

int replace(const std::string& path, const Json::Value& record) {
    nm::GeneratedFile file(path);
    return file ? file.replace(nm::write_compact_json(record)) : NM_ERR_OPEN;
}

/// What a record has never had, and what it has no more.
bool is_absent(const Json::Value& value) {
    return value.isString() ? value.asString().empty() : value.empty();
}

}  // namespace

namespace nm {

int read_ipv6_record(const std::string& ifname, Json::Value& record) {
    std::string path;
    const int ret = find_path(ifname, path);
    if (ret != NM_OK) {
        return ret;
    }
    if (!is_file_exists(path)) {
        NM_LOG(Debug) << ifname << " has no record of its IPv6";
        return NM_ERR_NOT_FOUND;
    }
    Json::Value read;
    if (!parse_json(read_file(path).value_or(""), read) || !read.isObject()) {
        NM_LOG(Error) << path << " is not valid format";
        return NM_ERR_PARSE;
    }
    record = read;
    return NM_OK;
}

int write_ipv6_record(const std::string& ifname, const Json::Value& record) {
    return with_lock(ifname, [&](const std::string& path) { return replace(path, record); });
}

int change_ipv6_record(const std::string& ifname, const std::function<bool(Json::Value& record)>& change) {
    return with_lock(ifname, [&](const std::string& path) {
        Json::Value record;
        const int ret = read_ipv6_record(ifname, record);
        return ret == NM_OK && change(record) ? replace(path, record) : ret;
    });
}

int remove_ipv6_record(const std::string& ifname) {
    return with_lock(ifname, [](const std::string& path) {
        if (remove(path.c_str()) == 0 || errno == ENOENT) {
            return NM_OK;
        }
        NM_LOG(Error) << path << " remove fail.";
        return NM_ERR_WRITE;
    });
}

bool is_in_force(const Json::Value& record, const Ipv6RecordKeys& keys) {
    const Json::Value& in_force = json_member(record, "in_force");
    return std::all_of(keys.begin(), keys.end(), [&](const char* key) {
        const Json::Value& is = json_member(record, key);
        const Json::Value& was = json_member(in_force, key);
        return is == was || (is_absent(is) && is_absent(was));
    });
}

int mark_in_force(const std::string& ifname, const Json::Value& done, const Ipv6RecordKeys& keys) {
    return change_ipv6_record(ifname, [&](Json::Value& record) {
        if (!record["in_force"].isObject()) {
            record["in_force"] = Json::objectValue;
        }
        for (const char* key : keys) {
            record["in_force"][key] = json_member(done, key);
        }
        return true;
    });
}

std::vector<std::string> skipped_downlinks(const Json::Value& record) {
    std::vector<std::string> names;
    for (const Json::Value& name : json_member(json_member(record, "in_force"), kSkipped)) {
        names.push_back(json_scalar(name));
    }
    return names;
}

int note_downlinks(const std::string& ifname, const std::vector<std::string>& done,
                   const std::vector<std::string>& skipped) {
    return change_ipv6_record(ifname, [&](Json::Value& record) {
        const std::vector<std::string> before = skipped_downlinks(record);
        std::set<std::string> names(before.begin(), before.end());
        for (const std::string& name : done) {
            names.erase(name);
        }
        names.insert(skipped.begin(), skipped.end());
        if (names == std::set<std::string>(before.begin(), before.end())) {
            return false;
        }
        Json::Value& in_force = record["in_force"];
        in_force = in_force.isObject() ? in_force : Json::Value(Json::objectValue);
        in_force[kSkipped] = Json::arrayValue;
        for (const std::string& name : names) {
            in_force[kSkipped].append(name);
        }
        return true;
    });
}

std::string address_in_force(const Json::Value& record) {
    return json_string_or(json_member(record, "in_force"), "curr_ip", "");
}

Json::Value delegated_prefixes(const std::string& ifname) {
    Json::Value record;
    (void)read_ipv6_record(ifname, record);  // without a record there are none
    const Json::Value& prefixes = json_member(record, "pdInfo");
    return prefixes.isArray() ? prefixes : Json::Value(Json::arrayValue);
}

}  // namespace nm

// The record of an uplink's IPv6.
#include "services/leases/ipv6_record.h"

#include <cerrno>
#include <cstdio>

#include "log.h"
#include "result_codes.h"
#include "services/files/generated_file.h"
#include "utils/file_io.h"
#include "utils/files.h"
#include "utils/json_text.h"
#include "utils/shell_text.h"

namespace {

int find_path(const std::string& ifname, std::string& path) {
    if (!nm::is_plain(ifname) || ifname.find('/') != std::string::npos) {
        NM_LOG(Error) << "Bad interface name: " << ifname;
        return NM_ERR_BAD_FORMAT;
    }
    path = "/var/run/network/ipv6/" + ifname + ".json";
    return NM_OK;
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
    std::string path;
    const int ret = find_path(ifname, path);
    return ret != NM_OK ? ret : replace_locked(path, write_compact_json(record));
}

int remove_ipv6_record(const std::string& ifname) {
    std::string path;
    const int ret = find_path(ifname, path);
    if (ret != NM_OK) {
        return ret;
    }
    if (remove(path.c_str()) != 0 && errno != ENOENT) {
        NM_LOG(Error) << path << " remove fail.";
        return NM_ERR_WRITE;
    }
    return NM_OK;
}

Json::Value delegated_prefixes(const std::string& ifname) {
    Json::Value record;
    (void)read_ipv6_record(ifname, record);  // without a record there are none
    const Json::Value& prefixes = json_member(record, "pdInfo");
    return prefixes.isArray() ? prefixes : Json::Value(Json::arrayValue);
}

}  // namespace nm

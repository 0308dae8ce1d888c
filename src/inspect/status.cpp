// The state of the device, put together.
#include "inspect/status.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "config/nmconfig.h"
#include "inspect/status_view.h"
#include "log.h"
#include "result_codes.h"
#include "utils/file_io.h"
#include "utils/json_fault.h"

namespace {

std::string time_now() {
    const time_t now = time(nullptr);
    tm parts{};
    std::array<char, 32> text{};
    (void)gmtime_r(&now, &parts);
    (void)strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text.data();
}

std::string host_name() {
    utsname names{};
    return uname(&names) == 0 ? names.nodename : "";
}

}  // namespace

namespace nm {

void note_unread(Json::Value& report, const std::string& what, const std::string& reason) {
    Json::Value record;
    record["what"] = what;
    record["reason"] = reason;
    report["unread"].append(record);
}

void note_unreadable(Json::Value& report, const std::string& path) {
    if (access(path.c_str(), R_OK) != 0 && errno != ENOENT) {
        note_unread(report, path, strerror(errno));
    }
}

Json::Value look_at_document(Json::Value& report, const std::string& path) {
    errno = 0;
    const std::optional<std::string> text = read_file(path);
    if (!text && errno == ENOENT) {
        return {};
    }
    if (!text) {
        note_unread(report, path, strerror(errno));
        return {};
    }
    Json::Value root;
    const auto fault = parse_json_or_fault(*text, root);
    if (fault || !root.isObject()) {
        note_unread(report, path, fault ? "this is not JSON: " + fault->words : "it is not an object");
        return {};
    }
    return root;
}

}  // namespace nm

int report_status(Json::Value& report) {
    NM_LOG(Debug) << "Enter";
    report = Json::objectValue;
    report["unread"] = Json::arrayValue;
    report["time"] = time_now();
    report["host"] = host_name();
    report["booted"] = access("/var/run/network/.boot_fin", F_OK) == 0;
    const Json::Value device = nm::look_at_document(report, kDeviceInfoPath);
    nm::add_ports(report, device);
    nm::add_uplinks(report, device);
    nm::add_lans(report, device);
    nm::add_names(report);
    nm::add_policy(report);
    nm::add_units(report);
    nm::add_results(report);
    return NM_EXIT(report["unread"].empty() ? NM_OK : NM_ERR_NOT_FOUND);
}

// The reports of differences that are kept: one file each, named after the document and the time.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <ctime>

#include "config/DictDiffer.h"
#include "config/nmconfig.h"
#include "log.h"
#include "result_codes.h"
#include "utils/directories.h"
#include "utils/file_io.h"
#include "utils/handles.h"
#include "utils/json_text.h"

namespace {

constexpr const char* kDirectory = "/var/log/network";
constexpr const char* kPrefix = "diff_";

/// UTC by a format of strftime(3).
std::string written(const timespec& time, const char* format) {
    tm parts{};
    std::array<char, 32> text{};
    gmtime_r(&time.tv_sec, &parts);
    return {text.data(), strftime(text.data(), text.size(), format, &parts)};
}

/// Sorts by age, and two reports of one second differ.
std::string file_name(const std::string& prefix, const timespec& time) {
    const std::string nanoseconds = std::to_string(1000000000 + time.tv_nsec).substr(1);
    return prefix + written(time, "%Y%m%dT%H%M%S.") + nanoseconds + ".json";
}

int write_new(const std::string& path, const std::string& text) {
    auto file =
        nm::FileDescriptor::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, S_IRUSR | S_IWUSR);
    if (!file) {
        NM_LOG(Error) << "Cannot open " << path;
        return NM_ERR_OPEN;
    }
    if (!nm::write_all(file.get(), text) || !file.close()) {
        NM_LOG(Error) << "Cannot write " << path;
        (void)unlink(path.c_str());  // A piece of a report says less than none.
        return NM_ERR_WRITE;
    }
    return NM_OK;
}

int is_report(const dirent* entry) {
    return std::string(entry->d_name).rfind(kPrefix, 0) == 0 ? 1 : 0;
}

}  // namespace

int store_difference_report(std::string name, Json::Value report, std::string& path) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    report["document"] = name;
    report["date"] = written(now, "%Y-%m-%dT%H:%M:%SZ");
    const std::string prefix = kPrefix + name + "_";
    const std::string file = std::string(kDirectory) + "/" + file_name(prefix, now);
    const int ret = write_new(file, nm::write_styled_json(report));
    if (ret != NM_OK) {
        return ret;
    }
    path = file;
    (void)rotate_config(kDirectory, prefix.c_str());  // logged; the report is there
    return NM_OK;
}

Json::Value list_difference_reports(std::string name) {
    Json::Value reports(Json::arrayValue);
    for (const std::string& file : scandir_filter(kDirectory, is_report)) {
        const std::string path = std::string(kDirectory) + "/" + file;
        Json::Value report;
        if (!nm::parse_json(nm::read_file(path).value_or(""), report) || !report.isObject()) {
            NM_LOG(Error) << path << " is not a report";
            continue;
        }
        if (name.empty() || nm::json_string_or(report, "document", "") == name) {
            report["path"] = path;
            reports.append(report);
        }
    }
    return reports;
}

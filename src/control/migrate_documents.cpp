// The migration of stored documents.
#include "control/migrate_documents.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <functional>
#include <optional>

#include "config/DictDiffer.h"
#include "config/document_file.h"
#include "config/migration.h"
#include "log.h"
#include "peers/bus/service_bus.h"
#include "policy/routes/static_route.h"
#include "result_codes.h"
#include "services/dhcp/dhcp_defaults.h"
#include "utils/call_notes.h"
#include "utils/file_io.h"
#include "utils/files.h"
#include "utils/handles.h"
#include "utils/json_text.h"

namespace {

/// A document, the copy of what is in force (null if none is kept), and its migration.
struct Stored {
    const char* name;
    const char* in_force;
    int (*migrate)(Json::Value& config);
};

int migrate_dhcp(Json::Value& config) {
    if (config.isObject() && !config.isMember("DHCP_SERVICE")) {
        config["DHCP_SERVICE"] = Json::objectValue;
    }
    bool changed = false;
    return nm::complete_dhcp_service(config, changed);
}

int migrate_routes(Json::Value& config) {
    return migrate_static_route(config, "static_route.json");
}

int migrate_routes6(Json::Value& config) {
    return migrate_static_route6(config, "static_route6.json");
}

constexpr std::array kDocuments{
    Stored{"hw_port_info", nullptr, migrate_hw_port_info},
    Stored{"device_info", "/var/run/network/device_info.curr", migrate_device_info},
    Stored{"dhcp_service", nullptr, migrate_dhcp},
    Stored{"firewall", "/var/run/network/firewall.curr", migrate_firewall},
    Stored{"policy", "/var/run/network/policy.curr", migrate_policy},
    Stored{"segment", "/var/run/network/segment.curr", migrate_firewall_seg},
    Stored{"site", nullptr, migrate_site},
    Stored{"qos", "/var/run/network/qos.json", migrate_qos},
    Stored{"static_route", "/var/run/network/static_route.curr", migrate_routes},
    Stored{"static_route6", "/var/run/network/static_route6.json", migrate_routes6},
    Stored{"servicePort", nullptr, migrate_service_port},
    Stored{"system_svc_mgmt", nullptr, migrate_system_svc_mgmt},
};

const Stored* find_stored(const std::string& name) {
    const auto* const found = std::find_if(kDocuments.begin(), kDocuments.end(),
                                           [&name](const Stored& row) { return row.name == name; });
    return found != kDocuments.end() ? found : nullptr;
}

std::string path_of(const Stored& row) {
    return std::string("/etc/networkmanagement/") + row.name + ".json";
}

/// What keeps a text from being a document of its format; empty for one that is, which then is `document`,
/// and `current` its current form.
std::string fault_of(const Stored& row, const std::string& text, Json::Value& document,
                     Json::Value& current) {
    if (text.empty()) {
        return "the file is empty";
    }
    if (!nm::parse_json(text, document)) {
        return "it is not JSON";
    }
    current = document;
    return row.migrate(current) == NM_OK ? "" : "it is not a document of its format";
}

/// What takes the place of a broken document, and where it comes from.
Json::Value replacement(const Stored& row, Json::Value& source) {
    const std::string shipped =
        std::string("/usr/lib/networkmanagement/etc/default_config/") + row.name + ".json";
    for (const std::string& path : {std::string(row.in_force != nullptr ? row.in_force : ""), shipped}) {
        Json::Value document;
        Json::Value current;
        if (fault_of(row, nm::read_file(path).value_or(""), document, current).empty()) {
            source = path;
            return current;
        }
    }
    source = "template";
    return conftmpl_document(row.name);
}

/// The same text gets the same name, so that a document that breaks again and again in the same way fills no
/// disk. FNV-1a.
std::string name_beside(const std::string& path, const std::string& text) {
    uint64_t hash = 14695981039346656037U;
    for (const char c : text) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
    }
    constexpr const char* kDigits = "0123456789abcdef";
    std::string digits;
    for (int shift = 60; shift >= 0; shift -= 4) {
        digits += kDigits[(hash >> shift) & 0xf];
    }
    return path + ".broken-" + digits;
}

/// Whether the names of a directory are on the disk: a cut of power must not take the new name back and leave
/// the replacement.
bool is_name_safe(const std::string& path) {
    const std::string directory = path.substr(0, path.rfind('/'));
    const auto names = nm::FileDescriptor::open(directory.c_str(), O_RDONLY | O_DIRECTORY);
    return names && fsync(names.get()) == 0;
}

/// A second name for the file: nothing is copied, so nothing of it can be lost, and its access stays.
int keep_beside(const std::string& path, const std::string& text, const std::string& kept) {
    const bool is_kept = link(path.c_str(), kept.c_str()) == 0 ||
                         (errno == EEXIST && nm::read_file(kept).value_or("") == text);
    if (is_kept && is_name_safe(kept)) {
        return NM_OK;
    }
    NM_LOG(Error) << "Cannot keep " << path << " as " << kept << ": " << strerror(errno);
    return NM_ERR_WRITE;
}

/// One document on its way: what was found, and what will be.
struct Work {
    const Stored& row;
    std::string path;
    std::string text;
    Json::Value before;
    Json::Value after;
    Json::Value record;
};

void judge(Work& work) {
    const std::string fault = fault_of(work.row, work.text, work.before, work.after);
    work.record["to"] = nm::format_version(work.row.name);
    if (!fault.empty()) {
        work.record["state"] = "repaired";
        work.record["reason"] = fault;
        work.record["kept"] = name_beside(work.path, work.text);
        work.after = replacement(work.row, work.record["source"]);
        return;
    }
    work.record["from"] = document_version(work.row.name, work.before);
    const bool newer =
        nm::compare_versions(work.record["from"].asString(), nm::format_version(work.row.name)) > 0;
    work.record["state"] = newer ? "newer" : work.before == work.after ? "current" : "migrated";
    if (work.before != work.after) {
        work.record["difference"] = DictDiffer(work.before, work.after).report();
    }
}

int store(Work& work) {
    if (work.record.isMember("kept")) {
        const int ret = keep_beside(work.path, work.text, work.record["kept"].asString());
        if (ret != NM_OK) {
            return ret;
        }
    }
    const int ret = nm::replace_document(work.path, work.after);
    if (ret != NM_OK) {
        return ret;
    }
    NM_LOG(Info) << work.path << ": " << nm::show_json(work.record["state"]) << ", version "
                 << nm::format_version(work.row.name);
    std::string report;
    if (work.record.isMember("difference") &&
        store_difference_report(work.row.name, work.record["difference"], report) == NM_OK) {
        work.record["report"] = report;
    }
    return NM_OK;
}

int fail(Work& work, int code) {
    work.record["state"] = "failed";
    work.record["code"] = code;
    return code;
}

int work_document(Work& work, bool dry_run) {
    const std::optional<std::string> text = nm::read_file(work.path);
    if (!text) {
        NM_LOG(Error) << "Cannot open " << work.path;
        return fail(work, NM_ERR_OPEN);
    }
    work.text = *text;
    judge(work);
    const std::string state = work.record["state"].asString();
    if (dry_run || state == "current" || state == "newer") {
        return NM_OK;
    }
    const int ret = store(work);
    return ret != NM_OK ? fail(work, ret) : NM_OK;
}

/// A dry run takes no lock: what it reads is whole without, and lock files are files.
int migrate_one(const Stored& row, bool dry_run, Json::Value& record) {
    Work work{row, path_of(row), "", {}, {}, {}};
    work.record["document"] = row.name;
    work.record["path"] = work.path;
    int ret = NM_OK;
    if (!is_file_exists(work.path)) {
        work.record["state"] = "absent";
    } else if (dry_run) {
        ret = work_document(work, dry_run);
    } else {
        const nm::LockGuard lock(work.path);
        ret = lock.handle() < 0 ? fail(work, lock.handle()) : work_document(work, dry_run);
    }
    record = work.record;
    return ret;
}

bool is_written(const Json::Value& record) {
    const std::string state = record["state"].asString();
    return state == "migrated" || state == "repaired";
}

}  // namespace

int migrate_documents(const std::vector<std::string>& names, bool dry_run, Json::Value& report) {
    NM_LOG(Debug) << "Enter";
    const std::vector<std::string> wanted = names.empty() ? migrated_documents() : names;
    for (const std::string& name : wanted) {
        if (find_stored(name) == nullptr) {
            NM_LOG(Error) << "Unknown document: " << name;
            return NM_EXIT(NM_ERR_BAD_ACT);
        }
    }
    report = Json::arrayValue;
    int result = NM_OK;
    for (const std::string& name : wanted) {
        Json::Value& record = report.append(Json::objectValue);
        const int ret =
            nm::work_target(name, [&] { return migrate_one(*find_stored(name), dry_run, record); });
        result = result != NM_OK ? result : ret;
        if (!dry_run && is_written(record)) {
            sync_file(record["path"].asString());
        }
    }
    return NM_EXIT(result);
}

std::vector<std::string> migrated_documents() {
    std::vector<std::string> names;
    names.reserve(kDocuments.size());
    for (const Stored& row : kDocuments) {
        names.emplace_back(row.name);
    }
    return names;
}

namespace nm {

int migrate_document(const std::string& name, Json::Value& document) {
    const Stored* const row = find_stored(name);
    return row != nullptr ? row->migrate(document) : NM_ERR_BAD_ACT;
}

}  // namespace nm

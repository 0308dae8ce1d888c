// Stored documents: their migration, and what differs between two of them.
#include <json/reader.h>
#include <json/writer.h>
#include <networkinterface.h>

#include <algorithm>
#include <fstream>
#include <iomanip>
#include <iostream>

#include "nm_bin/commands.h"
#include "nm_bin/explain.h"

namespace nm_bin {

namespace {

/// What was in force after the last start and the changes since.
constexpr const char* kRunningPath = "/var/run/network/device_info.curr";

std::string member_of(const Json::Value& record, const char* key) {
    return record.get(key, "").asString();
}

/// What was found and done in words, behind the document's name and state.
std::string story_of(const Json::Value& record) {
    if (record.isMember("kept")) {
        return member_of(record, "reason") + "; replaced from " + member_of(record, "source") + ", kept as " +
               member_of(record, "kept");
    }
    if (record.isMember("code")) {
        return std::string(describe_result(record["code"].asInt()).meaning);
    }
    if (member_of(record, "state") == "migrated") {
        return member_of(record, "from") + " -> " + member_of(record, "to");
    }
    return record.isMember("from") ? member_of(record, member_of(record, "state") == "newer" ? "from" : "to")
                                   : "";
}

void print_records(const Json::Value& records, bool with_difference) {
    for (const Json::Value& record : records) {
        const std::string story = story_of(record);
        std::cout << std::left << std::setw(16) << member_of(record, "document") << " "
                  << std::setw(story.empty() ? 0 : 9) << member_of(record, "state")
                  << (story.empty() ? "" : " " + story) << "\n";
        if (with_difference && record.isMember("difference")) {
            std::cout << show_difference(record["difference"]);
        }
    }
}

void print_json(const Json::Value& value) {
    std::cout << Json::writeString(Json::StreamWriterBuilder(), value) << "\n";
}

bool read_document(const std::string& path, Json::Value& document) {
    std::ifstream file(path, std::ios::binary);
    std::string errors;
    return file && Json::parseFromStream(Json::CharReaderBuilder(), file, &document, &errors);
}

}  // namespace

int migrate(const Arguments& names, const Options& options) {
    const std::vector<std::string> known = migrated_documents();
    for (const std::string& name : names) {
        if (std::find(known.begin(), known.end(), name) == known.end()) {
            return usage_error("no such document: " + name);
        }
    }
    Json::Value records;
    const auto work = [&] {
        INITIALIZE_LOG("MAIN");
        return migrate_documents(names, options.dry_run, records);
    };
    const auto print = [&](const Outcome&) {
        options.json ? print_json(records) : print_records(records, options.dry_run);
    };
    return options.dry_run ? follow_call(work, print) : run_call(work, options, print);
}

int show_changes(const Arguments& words, const Options& options) {
    INITIALIZE_LOG("MAIN");
    const Json::Value reports = list_difference_reports(words.empty() ? "" : words[0]);
    if (options.json) {
        print_json(reports);
        return kExitOk;
    }
    for (const Json::Value& report : reports) {
        std::cout << member_of(report, "document") << " " << member_of(report, "date") << "\n"
                  << show_difference(report);
    }
    return kExitOk;
}

int diff(const Arguments& words, const Options& options) {
    const std::string old_path = words.size() == 2 ? words[0]
                                 : words.empty()   ? kRunningPath
                                                   : kDeviceInfoPath;
    const std::string new_path = words.empty() ? kDeviceInfoPath : words.back();
    if (const int status = check_readable({old_path, new_path}); status != kExitOk) {
        return status;
    }
    Json::Value old_document;
    Json::Value new_document;
    if (!read_document(old_path, old_document) || !read_document(new_path, new_document)) {
        return usage_error("cannot read " + old_path + " and " + new_path);
    }
    const DictDiffer differ(old_document, new_document);
    options.json ? print_json(differ.report()) : void(std::cout << show_difference(differ.report()));
    return differ.differences().empty() ? kExitOk : kExitFailed;
}

}  // namespace nm_bin

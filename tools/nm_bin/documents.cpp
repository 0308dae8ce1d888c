// Stored documents: their migration, and what differs between two of them.
#include <json/reader.h>
#include <json/writer.h>
#include <networkinterface.h>

#include <algorithm>
#include <fstream>
#include <iomanip>
#include <iostream>

#include "nm_bin/commands.h"

namespace nm_bin {

namespace {

std::string text_of(const Json::Value& record, const char* key) {
    return record.get(key, "").asString();
}

/// What was found and done in words, behind the document's name and state.
std::string story_of(const Json::Value& record) {
    if (record.isMember("kept")) {
        return text_of(record, "reason") + "; replaced from " + text_of(record, "source") + ", kept as " +
               text_of(record, "kept");
    }
    if (record.isMember("code")) {
        return std::string(describe_result(record["code"].asInt()).meaning);
    }
    if (text_of(record, "state") == "migrated") {
        return text_of(record, "from") + " -> " + text_of(record, "to");
    }
    return record.isMember("from") ? text_of(record, text_of(record, "state") == "newer" ? "from" : "to")
                                   : "";
}

void print_records(const Json::Value& records, bool with_difference) {
    for (const Json::Value& record : records) {
        const std::string story = story_of(record);
        std::cout << std::left << std::setw(16) << text_of(record, "document") << " "
                  << std::setw(story.empty() ? 0 : 9) << text_of(record, "state")
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

int migrate(const Arguments& words, bool as_json) {
    Arguments names = words;
    const auto options = std::remove(names.begin(), names.end(), "--dry-run");
    const bool dry_run = options != names.end();
    names.erase(options, names.end());
    const std::vector<std::string> known = migrated_documents();
    for (const std::string& name : names) {
        if (std::find(known.begin(), known.end(), name) == known.end()) {
            return usage_error("no such document: " + name);
        }
    }
    INITIALIZE_LOG("MAIN");
    Json::Value records;
    const int code = migrate_documents(names, dry_run, records);
    as_json ? print_json(records) : print_records(records, dry_run);
    return code < 0 ? kExitFailed : kExitOk;
}

int show_changes(const Arguments& words, bool as_json) {
    if (words.size() > 1) {
        return usage_error("changes takes [DOCUMENT]");
    }
    INITIALIZE_LOG("MAIN");
    const Json::Value reports = list_difference_reports(words.empty() ? "" : words[0]);
    if (as_json) {
        print_json(reports);
        return kExitOk;
    }
    for (const Json::Value& report : reports) {
        std::cout << text_of(report, "document") << " " << text_of(report, "date") << "\n"
                  << show_difference(report);
    }
    return kExitOk;
}

int show_diff(const Arguments& words, bool as_json) {
    if (words.size() != 2) {
        return usage_error("diff takes OLD NEW");
    }
    Json::Value documents[2];
    for (int i = 0; i < 2; ++i) {
        if (!read_document(words[static_cast<size_t>(i)], documents[i])) {
            return usage_error("cannot read " + words[static_cast<size_t>(i)]);
        }
    }
    const DictDiffer differ(documents[0], documents[1]);
    as_json ? print_json(differ.report()) : void(std::cout << show_difference(differ.report()));
    return differ.differences().empty() ? kExitOk : kExitFailed;
}

}  // namespace nm_bin

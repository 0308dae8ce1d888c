// Faults of JSON texts, by the reader that the documents are read with.
#include "utils/json_fault.h"

#include <json/reader.h>

#include <cstdio>
#include <memory>
#include <vector>

// What the store reads with, so that the same texts are refused.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace nm {

std::optional<JsonFault> parse_json_or_fault(const std::string& text, Json::Value& root) {
    Json::Reader reader;
    try {
        if (reader.parse(text.data(), text.data() + text.size(), root, false)) {
            return std::nullopt;
        }
    } catch (const Json::Exception&) {
        return JsonFault{"it is nested too deep", 0};
    }
    const std::vector<Json::Reader::StructuredError> faults = reader.getStructuredErrors();
    const bool has_place = !faults.empty() && faults.front().offset_start >= 0;
    return JsonFault{faults.empty() ? "it is not JSON" : faults.front().message,
                     has_place ? static_cast<std::size_t>(faults.front().offset_start) : 0};
}

/// The newer reader refuses names that stand twice, and reports the place by line and column only.
std::optional<JsonFault> find_repeated_name(const std::string& text) {
    Json::CharReaderBuilder builder;
    builder["rejectDupKeys"] = true;
    builder["failIfExtra"] = false;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value root;
    std::string words;
    if (reader->parse(text.data(), text.data() + text.size(), &root, &words)) {
        return std::nullopt;
    }
    unsigned long line = 0;
    unsigned long column = 0;
    const std::size_t named = words.find("Duplicate key: ");
    if (named == std::string::npos || sscanf(words.c_str(), "* Line %lu, Column %lu", &line, &column) != 2) {
        return std::nullopt;
    }
    std::size_t begin = 0;
    for (; line > 1; --line) {
        begin = text.find('\n', begin) + 1;
    }
    return JsonFault{words.substr(named, words.find('\n', named) - named), begin + column - 1};
}

}  // namespace nm

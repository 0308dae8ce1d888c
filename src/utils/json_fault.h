// Why and where a text is not JSON, for people who have to mend it.
#pragma once

#include <json/value.h>

#include <cstddef>
#include <optional>
#include <string>

namespace nm {

/// What keeps a text from being JSON, and the byte where that was met.
struct JsonFault {
    std::string words;
    std::size_t offset;
};

/// parse_json() that says why it failed; nothing if it did not. The values of `root` know their places in the
/// text (Json::Value::getOffsetStart()).
std::optional<JsonFault> parse_json_or_fault(const std::string& text, Json::Value& root);

/// Where a name stands a second time in one object of a text that is JSON; nothing if no name does.
std::optional<JsonFault> find_repeated_name(const std::string& text);

}  // namespace nm

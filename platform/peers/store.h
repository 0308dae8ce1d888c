// Files behind the reference daemons: JSON documents and key=value files by absolute path.
#pragma once

#include <json/json.h>

#include <map>
#include <stdexcept>
#include <string>

namespace peers {

/// Why a request is not served, in words for its caller.
struct Refusal : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// One JSON text to a value. Throws Refusal.
Json::Value parse_json(const std::string& text);

/// A value to one line of compact JSON.
std::string to_line(const Json::Value& value);

/// Throws Refusal unless `path` names something below a directory of configuration or run-time copies.
void check_path(const std::string& path);

/// The text of a regular file. Throws Refusal.
std::string read_file(const std::string& path);

/// Puts `text` in the file's place in one move; on a failure the old file is untouched. Throws Refusal.
void replace_file(const std::string& path, const std::string& text);

/// The lines `key=value` of a file: split at the first "=", nothing trimmed, lines without one passed over,
/// the last of equal keys wins. Throws Refusal.
std::map<std::string, std::string> read_pairs(const std::string& path);

}  // namespace peers

// JSON text in and out: the one place that touches jsoncpp's older reader and writers, whose output
// form (compact, one line, "\n" at the end) the peers and the stored documents rely on.
#pragma once

#include <json/value.h>

#include <string>

namespace nm {

/// Parses `text` into `root`. False on a syntax error and on text nested deeper than the parser's
/// limit; `root` then holds what the parser left. Never throws.
bool parse_json(const std::string& text, Json::Value& root, bool collect_comments = false);

/// One line of JSON with "\n" at the end; non-ASCII characters are escaped.
std::string write_compact_json(const Json::Value& value);

/// Indented JSON for people.
std::string write_styled_json(const Json::Value& value);

/// A value for a log line: a string without quotes, anything else as compact JSON without the line end.
std::string show_json(const Json::Value& value);

/// The beginning of a text that is not JSON, for a log line: up to the first value, which may be a password,
/// at most 16 bytes, then how long the text is.
std::string show_broken_json(const std::string& text);

/// Member `key` of `value`; a null value if `value` is not an object or has no such member.
const Json::Value& json_member(const Json::Value& value, const std::string& key);

/// A document of one section with one member, as `document` has it; empty for an empty one. For whoever reads
/// no more of it: a document of many ports takes long to copy.
Json::Value json_part(const Json::Value& document, const std::string& section, const std::string& key);

/// Member `key` of `value` as text, `fallback` if it is absent. Numbers are written out; an object or an
/// array throws Json::LogicError, since a document that holds one there is not what the reader expects.
std::string json_text(const Json::Value& value, const std::string& key, const std::string& fallback = "");

/// A value as text; numbers are written out, and what cannot be (an object or an array) is empty.
std::string json_scalar(const Json::Value& value);

/// Member `key` if it is there and a JSON string, otherwise `fallback`.
std::string json_string_or(const Json::Value& value, const std::string& key, const std::string& fallback);

/// The integer member `key`, `fallback` if it is absent or null. False, with `number` untouched, if `value`
/// is not an object or the member is not an integer.
bool json_integer(const Json::Value& value, const std::string& key, int fallback, int& number);

/// A member's name as it stands in a JSON pointer (RFC 6901): "~" and "/" escaped.
std::string json_pointer_token(const std::string& name);

}  // namespace nm

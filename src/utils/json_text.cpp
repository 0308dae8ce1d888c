// jsoncpp's older reader and writers behind plain functions.
#include "utils/json_text.h"

#include <json/reader.h>
#include <json/writer.h>

#include <algorithm>

// The newer builders write another form; ours is fixed by what peers and stored files hold.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace nm {

bool parse_json(const std::string& text, Json::Value& root, bool collect_comments) {
    // The reader throws on text that is nested too deep.
    try {
        // Given a string, the reader would copy it.
        return Json::Reader().parse(text.data(), text.data() + text.size(), root, collect_comments);
    } catch (const Json::Exception&) {
        return false;
    }
}

std::string write_compact_json(const Json::Value& value) {
    return Json::FastWriter().write(value);
}

std::string write_styled_json(const Json::Value& value) {
    return Json::StyledWriter().write(value);
}

std::string show_json(const Json::Value& value) {
    if (value.isString()) {
        return value.asString();
    }
    std::string text = write_compact_json(value);
    text.erase(text.find_last_not_of('\n') + 1);
    return text;
}

std::string show_broken_json(const std::string& text) {
    constexpr std::size_t kShown = 16;
    const std::string start = text.substr(0, std::min(text.find(':'), kShown));
    return start.size() == text.size() ? text : start + "... (" + std::to_string(text.size()) + " bytes)";
}

const Json::Value& json_member(const Json::Value& value, const std::string& key) {
    if (!value.isObject()) {
        return Json::Value::nullSingleton();
    }
    const Json::Value* found = value.find(key.data(), key.data() + key.size());
    return found != nullptr ? *found : Json::Value::nullSingleton();
}

Json::Value json_part(const Json::Value& document, const std::string& section, const std::string& key) {
    Json::Value part;
    if (!document.empty()) {
        part[section][key] = json_member(json_member(document, section), key);
    }
    return part;
}

std::string json_text(const Json::Value& value, const std::string& key, const std::string& fallback) {
    if (!value.isObject() || !value.isMember(key)) {
        return fallback;
    }
    return value[key].asString();
}

std::string json_scalar(const Json::Value& value) {
    return value.isConvertibleTo(Json::stringValue) ? value.asString() : "";
}

std::string json_string_or(const Json::Value& value, const std::string& key, const std::string& fallback) {
    const Json::Value& member = json_member(value, key);
    return member.isString() ? member.asString() : fallback;
}

bool json_integer(const Json::Value& value, const std::string& key, int fallback, int& number) {
    if (!value.isObject()) {
        return false;
    }
    if (json_member(value, key).isNull()) {
        number = fallback;
        return true;
    }
    if (!value[key].isInt()) {
        return false;
    }
    number = value[key].asInt();
    return true;
}

std::string json_pointer_token(const std::string& name) {
    std::string token;
    for (const char c : name) {
        token += c == '~' ? "~0" : c == '/' ? "~1" : std::string(1, c);
    }
    return token;
}

}  // namespace nm

// Secrets of documents, masked.
#include "utils/secrets.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>

namespace {

/// Parts of names. "key" alone would catch harmless ones.
constexpr std::array<std::string_view, 11> kParts{"password", "passwd",  "passphrase", "secret",
                                                  "psk",      "token",   "credential", "preshared",
                                                  "apikey",   "api_key", "private_key"};

/// Whole names.
constexpr std::array<std::string_view, 6> kNames{"key", "keys", "pass", "pwd", "pin", "privatekey"};

/// In the place of a secret.
constexpr const char* kMask = "***";

bool is_word_at(const std::string& text, size_t position) {
    return position < text.size() && std::isalnum(static_cast<unsigned char>(text[position])) != 0;
}

void mask_word(std::string& text, const std::string& secret) {
    const std::string mask = kMask;
    for (size_t at = text.find(secret); at != std::string::npos; at = text.find(secret, at)) {
        const bool is_part = (at > 0 && is_word_at(text, at - 1)) || is_word_at(text, at + secret.size());
        if (!is_part) {
            text.replace(at, secret.size(), mask);
        }
        at += is_part ? 1 : mask.size();
    }
}

/// The end of a JSON string that begins behind `open`; quotes within it are escaped.
size_t end_of_string(const std::string& text, size_t open) {
    size_t end = open;
    while (end < text.size() && text[end] != '"') {
        end += text[end] == '\\' ? 2 : 1;
    }
    return std::min(end, text.size());
}

/// Masks the string that follows a key which ends at `quote`.
void mask_json_value(std::string& text, size_t quote) {
    const size_t colon = text.find_first_not_of(" \t", quote + 1);
    const size_t open = colon == std::string::npos ? colon : text.find_first_not_of(" \t", colon + 1);
    if (open != std::string::npos && text[colon] == ':' && text[open] == '"') {
        text.replace(open + 1, end_of_string(text, open + 1) - open - 1, kMask);
    }
}

}  // namespace

bool is_secret_key(std::string name) {
    std::transform(name.begin(), name.end(), name.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return std::find(kNames.begin(), kNames.end(), name) != kNames.end() ||
           std::any_of(kParts.begin(), kParts.end(),
                       [&name](std::string_view part) { return name.find(part) != std::string::npos; });
}

Json::Value mask_secrets(const Json::Value& value) {
    return secret_words().mask_all(value);
}

std::string mask_option(const std::string& line) {
    const size_t begin = std::min(line.find_first_not_of(" \t"), line.size());
    const size_t end = std::min(line.find_first_of(" \t=:", begin), line.size());
    const bool has_value = line.find_first_not_of(" \t", end) != std::string::npos && line[begin] != '"';
    const bool is_secret = has_value && is_secret_key(line.substr(begin, end - begin));
    return is_secret ? line.substr(0, end + 1) + kMask : line;
}

void secret_words::learn(const Json::Value& document) {
    if (document.isArray()) {
        for (const Json::Value& element : document) {
            learn(element);
        }
    }
    if (!document.isObject()) {
        return;
    }
    for (const std::string& key : document.getMemberNames()) {
        const Json::Value& value = document[key];
        if (is_secret_key(key) && value.isString() && !value.asString().empty()) {
            words_.insert(value.asString());
        }
        learn(value);
    }
}

std::string secret_words::mask(std::string text) const {
    for (size_t open = text.find('"'); open != std::string::npos; open = text.find('"', open)) {
        const size_t quote = end_of_string(text, open + 1);
        if (is_secret_key(text.substr(open + 1, quote - open - 1))) {
            mask_json_value(text, quote);
        }
        open = quote + 1;
    }
    for (const std::string& secret : words_) {
        mask_word(text, secret);
    }
    return text;
}

Json::Value secret_words::mask_all(const Json::Value& value) const {
    Json::Value shown = value;
    if (shown.isString()) {
        return mask(shown.asString());
    }
    if (shown.isObject()) {
        for (auto member = shown.begin(); member != shown.end(); ++member) {
            *member = is_secret_key(member.name()) ? Json::Value(kMask) : mask_all(*member);
        }
    } else if (shown.isArray()) {
        for (Json::Value& element : shown) {
            element = mask_all(element);
        }
    }
    return shown;
}

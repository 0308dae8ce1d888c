// Secrets of documents, masked.
#include "utils/secrets.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>

#include "utils/json_text.h"

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

/// The end of a JSON array that begins behind `open`; its strings may hold brackets.
size_t end_of_array(const std::string& text, size_t open) {
    size_t depth = 1;
    for (size_t end = open; end < text.size(); ++end) {
        if (text[end] == '"') {
            end = end_of_string(text, end + 1);
        } else if (text[end] == '[') {
            ++depth;
        } else if (text[end] == ']' && --depth == 0) {
            return end;
        }
    }
    return text.size();
}

/// Masks the value at `begin`: a string or an array up to its end, anything else up to what follows it.
/// Members of an object have names of their own.
void mask_value_at(std::string& text, size_t begin) {
    const char sign = text[begin];
    if (sign == '"') {
        text.replace(begin + 1, end_of_string(text, begin + 1) - begin - 1, kMask);
    } else if (sign == '[') {
        const size_t end = end_of_array(text, begin + 1);
        const bool is_empty = text.find_first_not_of(" \t\n", begin + 1) >= end;
        text.replace(begin + 1, is_empty ? 0 : end - begin - 1, is_empty ? "" : kMask);
    } else if (sign != '{') {
        text.replace(begin, std::min(text.find_first_of(",}]\r\n", begin), text.size()) - begin, kMask);
    }
}

/// Masks the value that follows a key which ends at `quote`.
void mask_json_value(std::string& text, size_t quote) {
    const size_t colon = text.find_first_not_of(" \t", quote + 1);
    const size_t begin = colon == std::string::npos ? colon : text.find_first_not_of(" \t", colon + 1);
    if (begin != std::string::npos && text[colon] == ':') {
        mask_value_at(text, begin);
    }
}

/// Adds a scalar as set-ups take it, a number written out, or those of an array. True and false are secrets
/// of nobody, and would mask words of any text.
void add_words(const Json::Value& secret, std::set<std::string>& words) {
    if (secret.isArray()) {
        for (const Json::Value& element : secret) {
            add_words(element, words);
        }
        return;
    }
    const std::string word = secret.isBool() ? "" : nm::json_scalar(secret);
    if (!word.empty()) {
        words.insert(word);
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
        if (is_secret_key(key)) {
            add_words(value, words_);
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

// Finding and masking secrets.
#include "nm_bin/secrets.h"

#include <networkinterface.h>

#include <algorithm>
#include <cctype>
#include <set>

namespace nm_bin {

namespace {

std::set<std::string>& secrets() {
    static std::set<std::string> known;
    return known;
}

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

void learn_secrets(const Json::Value& document) {
    if (document.isArray()) {
        for (const Json::Value& element : document) {
            learn_secrets(element);
        }
    }
    if (!document.isObject()) {
        return;
    }
    for (const std::string& key : document.getMemberNames()) {
        const Json::Value& value = document[key];
        if (is_secret_key(key) && value.isString() && !value.asString().empty()) {
            secrets().insert(value.asString());
        }
        learn_secrets(value);
    }
}

std::string mask_text(std::string text) {
    for (size_t open = text.find('"'); open != std::string::npos; open = text.find('"', open)) {
        const size_t quote = end_of_string(text, open + 1);
        if (is_secret_key(text.substr(open + 1, quote - open - 1))) {
            mask_json_value(text, quote);
        }
        open = quote + 1;
    }
    for (const std::string& secret : secrets()) {
        mask_word(text, secret);
    }
    return text;
}

}  // namespace nm_bin

// Secrets of documents, masked.
#include "utils/secrets.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace {

/// Parts of names. "key" alone would catch harmless ones.
constexpr std::array<std::string_view, 11> kParts{"password", "passwd",  "passphrase", "secret",
                                                  "psk",      "token",   "credential", "preshared",
                                                  "apikey",   "api_key", "private_key"};

/// Whole names.
constexpr std::array<std::string_view, 6> kNames{"key", "keys", "pass", "pwd", "pin", "privatekey"};

}  // namespace

bool is_secret_key(std::string name) {
    std::transform(name.begin(), name.end(), name.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return std::find(kNames.begin(), kNames.end(), name) != kNames.end() ||
           std::any_of(kParts.begin(), kParts.end(),
                       [&name](std::string_view part) { return name.find(part) != std::string::npos; });
}

Json::Value mask_secrets(const Json::Value& value) {
    Json::Value shown = value;
    if (shown.isObject()) {
        for (auto member = shown.begin(); member != shown.end(); ++member) {
            *member = is_secret_key(member.name()) ? Json::Value("***") : mask_secrets(*member);
        }
    } else if (shown.isArray()) {
        for (Json::Value& element : shown) {
            element = mask_secrets(element);
        }
    }
    return shown;
}

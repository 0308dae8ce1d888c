// Passwords stay out of everything that is printed.
#pragma once

#include <json/value.h>

#include <string>

namespace nm_bin {

/// In the place of a secret, as in the reports of the library.
constexpr const char* kMask = "***";

/// From now on the secrets of the document are masked, wherever a text holds one as a word of its own.
void learn_secrets(const Json::Value& document);

/// `text` without the secrets of the documents learned, and without what JSON in the text names as secret.
std::string mask_text(std::string text);

}  // namespace nm_bin

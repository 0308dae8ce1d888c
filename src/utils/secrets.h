// Which members of a document hold secrets, and documents for people's eyes, in which they are masked. One
// list serves every output.
#pragma once

#include <json/value.h>

#include <set>
#include <string>

#pragma GCC visibility push(default)

/// Whether a member of this name holds a password, a key or another credential, whatever its letters' case.
bool is_secret_key(std::string name);

/// `value` with the value of every secret member replaced by "***", at any depth.
Json::Value mask_secrets(const Json::Value& value);

/// A line of a file of options, "NAME VALUE", with "***" in the place of the value if the name is a secret's.
std::string mask_option(const std::string& line);

/// The secrets of documents, for texts that may hold them outside of a document: lines of a log, of a
/// generated file, of a command.
class secret_words {
public:
    /// From now on the secrets of the document are masked, wherever a text holds one as a word of its own.
    void learn(const Json::Value& document);

    /// `text` with "***" in the place of the secrets learned, and of what JSON in the text names as secret.
    std::string mask(std::string text) const;

    /// `value` with the value of every secret member, and every secret in a text, replaced.
    Json::Value mask_all(const Json::Value& value) const;

private:
    std::set<std::string> words_;
};

#pragma GCC visibility pop

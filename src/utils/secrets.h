// Which members of a document hold secrets, and documents for people's eyes, in which they are masked. One
// list serves every output.
#pragma once

#include <json/value.h>

#include <string>

#pragma GCC visibility push(default)

/// Whether a member of this name holds a password, a key or another credential, whatever its letters' case.
bool is_secret_key(std::string name);

/// `value` with the value of every secret member replaced by "***", at any depth.
Json::Value mask_secrets(const Json::Value& value);

#pragma GCC visibility pop

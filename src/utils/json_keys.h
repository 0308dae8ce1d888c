// The keys of a document's section.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#pragma GCC visibility push(default)

/// Replaces `keys` by the member names of the object at `key`, in sorted order, empty names left out. 0,
/// NM_ERR_NO_KEY for an empty document, NM_ERR_NO_SUBKEY if it has no such object.
int get_key_list(Json::Value& root, std::string key, std::vector<std::string>& keys);

#pragma GCC visibility pop

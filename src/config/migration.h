// Stored documents brought to the current format, in memory. These have had one format so far: what is not a
// document of it is refused before anything is applied.
#pragma once

#include <json/value.h>

#pragma GCC visibility push(default)

/// 0, or NM_ERR_BAD_FORMAT for a document that is not an object.
int migrate_firewall(Json::Value& config);
int migrate_policy(Json::Value& config);
int migrate_firewall_seg(Json::Value& config);
int migrate_qos(Json::Value& config);

#pragma GCC visibility pop

// The parts of the report on the device's state.
#pragma once

#include <json/value.h>

#include <string>

namespace nm {

/// Notes in the report that `what` could not be looked at.
void note_unread(Json::Value& report, const std::string& what, const std::string& reason);

/// Notes in the report that the file at `path` cannot be read, if it is there.
void note_unreadable(Json::Value& report, const std::string& path);

/// The document at `path`, read without a lock; null, and noted, if it cannot be. One that is absent is null.
Json::Value look_at_document(Json::Value& report, const std::string& path);

/// `ports`, `uplinks` and `lans` of the device document.
void add_ports(Json::Value& report, const Json::Value& device);
void add_uplinks(Json::Value& report, const Json::Value& device);
void add_lans(Json::Value& report, const Json::Value& device);

/// `names`, `policy`, `units` and `results`.
void add_names(Json::Value& report);
void add_policy(Json::Value& report);
void add_units(Json::Value& report);
void add_results(Json::Value& report);

}  // namespace nm

// The formats of the stored documents: their versions, their empty documents, and older documents brought to
// the current format, in memory. docs/migration.md tells the formats and their steps.
//
// A document carries its version as `dbversion` or as `VERSION` of its member `META`, as its format has it;
// one without counts as 0.0.0. A format's steps lead from version to version, and those that a document has
// behind it are not run again. A document that is newer than this code is left as it is, which is logged.
#pragma once

#include <json/value.h>

#include <string>

#pragma GCC visibility push(default)

/// 0, or NM_ERR_BAD_FORMAT for a document that is not an object.
int migrate_device_info(Json::Value& config);
int migrate_hw_port_info(Json::Value& config);
int migrate_firewall(Json::Value& config);
int migrate_policy(Json::Value& config);
int migrate_firewall_seg(Json::Value& config);
int migrate_site(Json::Value& config);
int migrate_qos(Json::Value& config);
int migrate_service_port(Json::Value& config);
int migrate_system_svc_mgmt(Json::Value& config);

/// The empty document of a format ("device_info", "firewall", ...), of its current version; null for a name
/// that none has.
Json::Value conftmpl_document(std::string name);

/// The version that a document of the format `name` carries; "0.0.0" without one.
std::string document_version(std::string name, const Json::Value& config);

#pragma GCC visibility pop

namespace nm {

/// The current version of a format. The name is one of conftmpl_document().
const char* format_version(const std::string& name);

/// Whether the document is of a later version than the format's; logged as what is left alone.
bool is_newer(const std::string& name, const Json::Value& config);

/// Below 0, 0 or above 0 as version `a` is older than, equal to or newer than `b`. Dotted numbers; what is
/// not a number counts as 0.
int compare_versions(const std::string& a, const std::string& b);

}  // namespace nm

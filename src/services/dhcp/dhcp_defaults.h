// The default record of an interface's DHCP service, and stored documents brought up to its format.
#pragma once

#include <json/value.h>

#include <string>

#pragma GCC visibility push(default)

/// The entry of an interface that has none: a server for 192.168.100.1 to 192.168.100.100.
Json::Value generate_default_dhcp_service();

/// Gives each entry of `DHCP_SERVICE` in `config` the keys that it lacks: the default record's values, but
/// "DISABLED" as its service and no addresses, so that no interface begins to serve or hands out addresses of
/// another subnet because its entry was completed. What is there stays as it is, unknown keys and empty
/// entries included, and so does a document of a later version. The document is written to `path` if it
/// changed. 0; NM_ERR_NO_KEY without the section; NM_ERR_BAD_FORMAT for a section that is not an object; the
/// codes of json_mem_to_file().
int migrate_dhcp_service(Json::Value& config, std::string path);

#pragma GCC visibility pop

namespace nm {

/// The same in memory; `changed` tells whether anything was added.
int complete_dhcp_service(Json::Value& config, bool& changed);

}  // namespace nm

// The JSON store: documents addressed by their absolute path, held in files or behind the configuration
// service, plus the small key=value files, the thinning of rotated files and the device snapshot.
#pragma once

#include <json/value.h>

#include <string>
#include <unordered_map>

#pragma GCC visibility push(default)

/// Reads the document at `path` by the service, falling back to the file, where the appliance has the
/// service (it comes with /usr/bin/python); by the file alone elsewhere. The route is chosen on every call.
/// 0; NM_ERR_NOT_FOUND for a file that is absent or empty; NM_ERR_PARSE. `out` is untouched unless the text
/// was read.
int json_file_to_mem(std::string path, Json::Value& out);

/// Writes the document by the same choice of routes; `force_file` never uses the service. The file is
/// replaced in one step: whatever happens, `path` holds the old document or the new one, whole.
/// 0; NM_ERR_WRITE; the code of a lock that was not obtained.
int json_mem_to_file(std::string path, Json::Value& value, bool force_file);

/// The file route of json_file_to_mem() and json_mem_to_file(). The write goes to `<path>.tmp`, reaches the
/// disk and is renamed over `path`, under the lock named after the file. The result of releasing that lock
/// replaces the result of the write, also a failure's.
int _json_file_to_mem(std::string path, Json::Value& out);
int _json_mem_to_file(std::string path, Json::Value& value);

/// The service route (`ncaas`, methods `read_json` and `write_json`). 0; NM_ERR_BUS_IO; NM_ERR_BUS_CALL;
/// NM_ERR_EMPTY for an empty reply; NM_ERR_PARSE for a reply that is not an envelope, and on reading also for
/// an envelope that reports an error.
int _json_ncaas_to_mem(std::string path, Json::Value& out);
int _json_mem_to_ncaas(std::string path, Json::Value& value);

/// Reads a file of `key=value` lines: split at the first "=", nothing trimmed, no comments; lines without
/// "=" are skipped and the last line of a key wins. 0, with `out` untouched if the file is empty;
/// NM_ERR_NOT_FOUND if it is not a regular file; NM_ERR_OPEN if it cannot be read.
int ini_conf_read(std::string path, std::unordered_map<std::string, std::string>& out);

/// Writes one `key=value` line per entry, in the map's order. Results of writeValue(); NM_ERR_BAD_VALUE, with
/// nothing written, for an entry that holds a line end.
int ini_conf_write(std::string path, std::unordered_map<std::string, std::string>& in);

/// Deletes the lowest names of `dir` that begin with `prefix` until ten are left; the names must sort by
/// age. 0; NM_ERR_NULL_ARG for a null argument or a missing directory.
int rotate_config(const char* dir, const char* prefix);

/// Refreshes the run-time copy of the device document and asks the service to make it current. The result
/// is that of the copy.
int copy_save_to_curr();

#pragma GCC visibility pop

/// Where the device document lives; old states are built from it.
constexpr const char* kDeviceInfoPath = "/etc/networkmanagement/device_info.json";

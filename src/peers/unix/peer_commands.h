// The commands of the peer daemons: `ncsid` probes the uplinks, `wanipd` learns their public addresses,
// `slaacrrd` handles IPv6 autoconfiguration. (Commands that first look a name or an id up in the device
// document are in config/peer_updates.h.)
//
// `interface` is a kernel interface name, `id` the uplink's id, `path` the document that holds the uplink's
// configuration. A command that takes `reply` stores the peer's answer there, or does not wait for one if it
// holds "no response"; the others never wait.
//
// Every command returns what the peer answers as `ret` (0 for success, the peer's own number otherwise), 0 if
// no answer is wanted, or a failure of deploy_unix_cli(); NM_ERR_CLI_EMPTY; NM_ERR_PARSE for an answer that
// is not a JSON object with an integer `ret`. An absent `ret` counts as 0.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

#include "peers/unix/unix_cli.h"

#pragma GCC visibility push(default)

/// The texts that the peers take, one JSON object each. Values are escaped, so that none changes the object.
/// The one for `slaacrrd` is empty if it is longer than 1023 bytes, which is logged with NM_ERR_CLI_FORMAT.
std::string create_json_slaacrrd_cmd(std::string command, std::string interface);
std::string create_json_wanipd_cmd(std::string command, std::string interface, uint8_t id, std::string path);
std::string create_json_ncsid_cmd(std::string command, std::string interface, uint8_t id, std::string path);

/// Any command of a peer.
int ncsid_cli(std::string& output, std::string command, std::string interface, uint8_t id, std::string path);
int wanipd_cli(std::string& output, std::string command, std::string interface, uint8_t id, std::string path);

/// The uplink's configuration has changed, or the uplink is gone.
int update_ncsi(std::string interface, uint8_t id, std::string path);
int remove_ncsi(std::string& reply, std::string interface, std::string path, uint8_t id);

/// Reads the probe's parameters anew from `path`; starts all probes over; reports the state of all uplinks.
int reconfig_ncsid(std::string& reply, std::string path);
int refresh_ncsid(std::string& reply, std::string path);
int get_ncsid_stat(std::string& reply);

/// The uplink's address may have changed, or the uplink is gone; all uplinks are looked at anew.
int update_ipinfo(uint8_t id, std::string interface, std::string path);
int remove_ipinfo(uint8_t id, std::string interface, std::string path, std::string& reply);
int refresh_all_ipinfo(std::string path, std::string& reply);

/// What `wanipd` knows of all uplinks: into the log alone, or into `ipinfo` too (untouched on failure).
int get_ipinfo(std::string path);
int get_ipinfo(Json::Value& ipinfo);

#pragma GCC visibility pop

namespace nm {

/// One exchange with a peer, with the log lines of a failure: "Create json cmd fail!" and NM_ERR_CLI_EMPTY
/// for an empty command, "Deploy <peer> CLI fail!" and the code of deploy_unix_cli().
int send_command(UNIX_CLI_TYPE peer, std::string command, std::string& output);

}  // namespace nm

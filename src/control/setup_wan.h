// Setup of WAN ports and of the addressing on them.
//
// A request is a JSON object with one member per target, whose value is an object. For devices the key is the
// port's name, for the addressing it is the interface's:
//
//     {"PORT1": {"ops": 4, "act": 3, "path": "/etc/networkmanagement/device_info.json"}}
//     {"swdev1": {"ops": 1, "act": 1, "path": "/etc/networkmanagement/device_info.json"}}
//
//   act   1 adds the target, 2 deletes it, 3 alters it
//   ops   mask of what changed: 0x01 IPv4, 0x04 MTU, link and PPPoE, 0x10 rates, ... (config/actions.h)
//   path  document that holds the new state; that of the first member serves for all
//
// The members are worked in the order of their keys. A failing member does not stop the others, and the
// result is that of the last one.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

#pragma GCC visibility push(default)

/// Sets up the log and works the request; no exception leaves it. 0 or a code of result_codes.h, among them
/// NM_ERR_NULL_ARG (null text), NM_ERR_PARSE (no JSON), NM_ERR_BAD_FORMAT (JSON of another form),
/// NM_ERR_NOT_FOUND (document), NM_ERR_NO_SECTION (port), NM_ERR_NO_IFACE (device), NM_ERR_LOCK,
/// NM_ERR_BAD_ACT.
extern "C" int Setup_wanif(char* json);

/// The request layer: parses, loads the document, works each port, then scales the TCP buffers and balances
/// the load anew if a port came, went or changed its rates. The log has to be set up already.
int setup_wanif(char* json);

/// The target layer: one port, under the lock of its interface. A delete reads the stored document in place
/// of `path` and `cfg`.
int _setup_wanif(std::string name, uint32_t act, uint32_t opt, std::string path, Json::Value cfg);

/// The same layers for the addressing. An alteration takes down the stored document's state, so the new state
/// has to be in another file than that one, until it is set up. The lock is that of the device side, named
/// after the interface; a PPPoE session's own name is not locked. No follow-up work. 0; the codes above with
/// NM_ERR_NO_IFACE for an interface of no port; those of WanIfaceInfo's operations.
extern "C" int Setup_waninfo(char* json);
int setup_waninfo(char* json);
int _setup_waninfo(std::string name, uint32_t act, uint32_t opt, std::string path, Json::Value cfg);

#pragma GCC visibility pop

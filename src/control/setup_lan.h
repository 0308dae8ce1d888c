// Setup of LANs: the bridges of their VLAN segments, their ports, and the addressing on either.
//
// The requests have the form that control/setup_wan.h shows; their keys are the decimal VLAN id of a segment
// (`VLAN_SEG`), the name of a port (`LAN_PORT`), or the name of an interface (`LAN_IFACE_INFO`). The order in
// which a LAN comes up is segments, ports, addressing.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

#pragma GCC visibility push(default)

/// Set up the log and work the request; no exception leaves them. 0 or a code of result_codes.h: those of
/// Setup_wanif(), and NM_ERR_NO_KEY, NM_ERR_NO_SUBKEY (segment), NM_ERR_BAD_TYPE (model, type of addressing),
/// NM_ERR_BAD_IP, NM_ERR_SERVICE and the codes of bridges and VLAN devices.
extern "C" int Setup_vlanbr(char* json);
extern "C" int Setup_lanif(char* json);
extern "C" int Setup_laninfo(char* json);

/// The request layers. The log has to be set up already.
int setup_vlanbr(char* json);
int setup_lanif(char* json);
int setup_laninfo(char* json);

/// The target layer of a port, under the lock of its interface. What the port is depends on the appliance's
/// model: NM_ERR_EMPTY for a device without one, NM_ERR_BAD_TYPE for an unknown one, the code of asking for
/// it. A delete of everything (`opt` 63) reads the stored document in place of `path` and `cfg`; one of
/// single VLANs needs both documents to know which.
int _setup_lanif(std::string port, uint32_t act, uint32_t opt, std::string path, Json::Value config);

/// The target layer of an interface's addressing, under the lock of its name. A delete reads the stored
/// document in place of `path` and `cfg`.
int _setup_laninfo(std::string name, uint32_t act, uint32_t opt, std::string path, Json::Value cfg);

#pragma GCC visibility pop

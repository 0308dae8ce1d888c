// Setup of the small sections of the device document, whose keys are types within the section:
//
//     Setup_services  {"DNS_INFO": {"ops": 4, "act": 3, "path": "/etc/networkmanagement/device_info.json"}}
//     Setup_misc      {"SYSNET_PARAMETERS": {"ops": 32, "act": 3, "path": ...}}
//     Setup_topology  {"VPN": {"ops": 1, "act": 3, "path": ...}}
//
// Each member names its own document. The members are worked in the order of their keys.
#pragma once

#include <cstdint>
#include <string>

#pragma GCC visibility push(default)

/// Sets up the log and works the request; no exception leaves it. A failing member does not stop the others,
/// and the result is that of the last one: 0 or a code of _setup_service(), NM_ERR_NULL_ARG, NM_ERR_PARSE,
/// NM_ERR_BAD_FORMAT.
extern "C" int Setup_services(char* json);

/// The request layer. The log has to be set up already.
int setup_services(char* json);

/// The target layer, without a lock. A delete reads the stored document in place of `path`. 0;
/// NM_ERR_NULL_ARG for an empty type or path; NM_ERR_BAD_TYPE; the codes of Services::setup_info().
int _setup_service(std::string type, uint32_t act, uint32_t opt, std::string path);

/// The same layers for `MISC`, with the codes of Misc::setup_info().
extern "C" int Setup_misc(char* json);
int setup_misc(char* json);
int _setup_misc(std::string type, uint32_t act, uint32_t opt, std::string path);

/// The same for `TOPOLOGY`, where a member without `ops` or `path` ends the walk with NM_ERR_BAD_FORMAT. 0 if
/// all members could be worked, NM_ERR_BAD_ACT otherwise; NM_ERR_NULL_ARG, NM_ERR_PARSE, NM_ERR_BAD_FORMAT.
extern "C" int Setup_topology(char* json);

/// The target layer: "VPN". NM_ERR_BAD_FORMAT for any other type; the codes of Vpn::setup().
int __setup_topology(std::string& type, std::string& path, uint32_t opt, uint32_t act);

#pragma GCC visibility pop

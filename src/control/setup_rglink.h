// Setup of RGLinks and of the addressing on them. Requests are those of control/setup_wan.h, and so are
// layers, locks and codes.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

#pragma GCC visibility push(default)

/// RGLinks, by port. If one came, went or changed its rates, the TCP buffers are scaled and the load of
/// site-to-site traffic is balanced anew.
extern "C" int Setup_rglinkif(char* json);
int setup_rglinkif(char* json);
int _setup_rglinkif(std::string name, uint32_t act, uint32_t opt, std::string path, Json::Value cfg);

/// The addressing on them, by interface. No follow-up work.
extern "C" int Setup_rglinkinfo(char* json);
int setup_rglinkinfo(char* json);
int _setup_rglinkinfo(std::string name, uint32_t act, uint32_t opt, std::string path, Json::Value cfg);

#pragma GCC visibility pop

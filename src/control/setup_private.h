// Setup of private ports and of the addressing on them. Requests are those of control/setup_wan.h, and so are
// layers, locks and codes.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

#pragma GCC visibility push(default)

/// Private ports, by port. If one came, went or changed its rates, the TCP buffers are scaled and the load of
/// site-to-site traffic is balanced anew.
extern "C" int Setup_privateif(char* json);
int setup_privateif(char* json);
int _setup_privateif(std::string name, uint32_t act, uint32_t opt, std::string path, Json::Value cfg);

/// The addressing on them, by interface. No follow-up work.
extern "C" int Setup_privateinfo(char* json);
int setup_privateinfo(char* json);
int _setup_privateinfo(std::string name, uint32_t act, uint32_t opt, std::string path, Json::Value cfg);

#pragma GCC visibility pop

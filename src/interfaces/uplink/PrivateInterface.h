// The device side of a private port, an uplink onto a private circuit.
#pragma once

#include <json/value.h>

#include <string>

#include "interfaces/uplink/UplinkInterface.h"

#pragma GCC visibility push(default)

/// What a private port does as other uplinks do is in UplinkInterface.
class PrivateInterface : public UplinkInterface {
public:
    /// Throws as BaseWanInterface does.
    PrivateInterface(std::string port, std::string path, Json::Value cfg);

    /// `PRIVATE_GROUP_ID`: the group of circuits that the port belongs to, empty if there is none.
    std::string get_pgid();
};

/// Builds the private port `port` into `*itf` as create_WAN() builds a WAN port.
int create_PRIVATE_ITF(PrivateInterface** itf, std::string port, std::string path, Json::Value cfg);

#pragma GCC visibility pop

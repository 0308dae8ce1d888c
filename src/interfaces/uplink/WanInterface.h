// The device side of a WAN port.
#pragma once

#include <json/value.h>

#include <string>

#include "interfaces/uplink/UplinkInterface.h"

#pragma GCC visibility push(default)

/// What a WAN port does as other uplinks do is in UplinkInterface.
class WanInterface : public UplinkInterface {
public:
    /// Throws as BaseWanInterface does.
    WanInterface(std::string port, std::string path, Json::Value cfg);

protected:
    /// A session in force keeps its own MTU; one of an earlier configuration goes.
    int set_mtu() override;
};

/// Builds the WAN port `port` into `*wan` (null on entry, owned by the caller) from `cfg`, or from the
/// document at `path` if `cfg` is empty. "PORT1.100" stands for PORT1. 0; NM_ERR_NOT_NULL; NM_ERR_NULL_ARG;
/// NM_ERR_NO_SECTION; NM_ERR_NOT_FOUND; NM_ERR_BAD_FORMAT.
int create_WAN(WanInterface** wan, std::string port, std::string path, Json::Value cfg);

#pragma GCC visibility pop

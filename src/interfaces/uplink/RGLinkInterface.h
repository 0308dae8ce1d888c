// The device side of an RGLink, an uplink towards a domain link.
#pragma once

#include <json/value.h>

#include <string>

#include "interfaces/uplink/UplinkInterface.h"

#pragma GCC visibility push(default)

/// What an RGLink does as other uplinks do is in UplinkInterface.
class RGLinkInterface : public UplinkInterface {
public:
    /// Throws as BaseWanInterface does.
    RGLinkInterface(std::string port, std::string path, Json::Value cfg);

protected:
    /// A session is taken down before the MTU changes, and dialled again afterwards if the port still has
    /// one.
    int set_mtu() override;
};

/// Builds the RGLink `port` into `*rglink` as create_WAN() builds a WAN port.
int create_RGLINK(RGLinkInterface** rglink, std::string port, std::string path, Json::Value cfg);

#pragma GCC visibility pop

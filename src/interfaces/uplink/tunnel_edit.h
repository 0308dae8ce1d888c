// The tunnels of all uplinks of one kind at once; a kind is a row.
#pragma once

#include <json/value.h>

#include <memory>
#include <string>

#include "interfaces/uplink/UplinkIfaceInfo.h"

namespace nm {

/// Where a kind of uplinks has its entries, and how an object of one is made: null with the code on failure.
struct TunnelFamily {
    const char* section;
    const char* class_name;
    std::unique_ptr<UplinkIfaceInfo> (*make)(const std::string& ifname, const Json::Value& document,
                                             int& ret);
};

/// As edit_tunnels() of interfaces/uplink/WanIfaceInfo.h, for any kind.
int edit_tunnels_of(const TunnelFamily& family, int op);

}  // namespace nm

// The addressing side of an interface for callers that know its kind by number only.
#pragma once

#include <json/value.h>

#include <string>

#include "interfaces/common/BaseIfaceInfo.h"

#pragma GCC visibility push(default)

/// Builds the addressing side of `ifname` into `*info`, null on entry and owned by the caller, as the factory
/// of its kind does. `type` numbers the kinds as get_ifname_by_portname() does: 1 WAN, 2 LAN, 4 private,
/// 5 RGLink. 0; NM_ERR_NULL_ARG for no place; NM_ERR_NOT_NULL; NM_ERR_BAD_TYPE for another number; the
/// factory's code.
int create_INFO(BaseIfaceInfo** info, int type, std::string ifname, std::string path, Json::Value cfg);

#pragma GCC visibility pop

// The kernel's network devices: one include for all that is done to them.
#pragma once

#include "kernel/address.h"
#include "kernel/address_ipv6.h"
#include "kernel/bridge.h"
#include "kernel/ethtool_utils.h"
#include "kernel/link.h"
#include "kernel/link_state.h"
#include "kernel/route.h"
#include "kernel/route_table.h"
#include "kernel/rule.h"
#include "kernel/uplink_routing.h"
#include "kernel/vlan.h"

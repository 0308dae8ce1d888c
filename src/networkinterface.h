// libnetworkinterface: stored JSON documents become the state of a running Linux network stack.
//
// This is the header that a caller includes. A change is made in two moves: store the document, then call a
// Setup_ entry that names the targets (control/setup_wan.h shows a request). Every call is synchronous,
// keeps nothing in memory, and returns 0 or a positive value for success, or a code of result_codes.h.
#pragma once

#include "config/nmconfig.h"
#include "config/port_lookup.h"
#include "config/schema.h"
#include "config/tcp_window.h"
#include "control/setup_wan.h"
#include "interfaces/BaseInterface.h"
#include "interfaces/WanIfaceInfo.h"
#include "interfaces/WanInterface.h"
#include "interfaces/actions.h"
#include "kernel/Utils.h"
#include "kernel/if_utils.h"
#include "peers/logging.h"
#include "peers/service_bus.h"
#include "policy/qos_rate.h"
#include "result_codes.h"

// libnetworkinterface: stored JSON documents become the state of a running Linux network stack.
//
// This is the header that a caller includes. A change is made in two moves: store the document, then call a
// Setup_ entry that names the targets (control/setup_wan.h shows a request). Every call is synchronous,
// keeps nothing in memory, and returns 0 or a positive value for success, or a code of result_codes.h.
#pragma once

#include "config/actions.h"
#include "config/nmconfig.h"
#include "config/peer_updates.h"
#include "config/port_lookup.h"
#include "config/schema.h"
#include "config/tcp_window.h"
#include "control/edge_entries.h"
#include "control/setup_wan.h"
#include "interfaces/BaseInterface.h"
#include "interfaces/WanIfaceInfo.h"
#include "interfaces/WanInterface.h"
#include "kernel/Utils.h"
#include "kernel/if_utils.h"
#include "peers/appliance_services.h"
#include "peers/device_log.h"
#include "peers/logging.h"
#include "peers/peer_commands.h"
#include "peers/service_bus.h"
#include "peers/unix_cli.h"
#include "policy/edge_rules_alg.h"
#include "policy/edge_rules_attack_defense.h"
#include "policy/edge_rules_tcp_mss.h"
#include "policy/ipset.h"
#include "policy/load_balance.h"
#include "policy/qos_rate.h"
#include "result_codes.h"
#include "services/dns.h"
#include "services/dnsmasq.h"
#include "services/hostname_ipset.h"
#include "services/hosts.h"
#include "services/lan_dnsmasq.h"
#include "services/name_servers.h"

// The work behind each method of the service bus (vs_api.cpp has their table). Each is given the arguments of
// a request, an object, and says what to answer.
#pragma once

#include "control/handlers/vs_reply.h"

namespace nm::work {

// configurations.cpp: stored documents.
Answer set_up_firewall(const Json::Value& arguments);
Answer set_up_policy(const Json::Value& arguments);
Answer set_up_segment(const Json::Value& arguments);
Answer set_up_ip4_routes(const Json::Value& arguments);
Answer set_up_ip6_routes(const Json::Value& arguments);
Answer set_up_qos(const Json::Value& arguments);

// actions.cpp: what acts at once.
Answer edit_wan_tunnels(const Json::Value& arguments);
Answer edit_private_port_tunnels(const Json::Value& arguments);
Answer edit_link_tunnels(const Json::Value& arguments);
Answer balance_clients(const Json::Value& arguments);
Answer balance_sites(const Json::Value& arguments);
Answer renew_lease(const Json::Value& arguments);
Answer set_up_vpn(const Json::Value& arguments);
Answer set_up_daemons(const Json::Value& arguments);

// events.cpp: records of the system's log.
Answer report_carrier(const Json::Value& arguments);
Answer log_event(const Json::Value& arguments);

// queries.cpp: what only reads.
Answer report_wans(const Json::Value& arguments);
Answer report_private_ports(const Json::Value& arguments);
Answer report_links(const Json::Value& arguments);
Answer report_lans(const Json::Value& arguments);
Answer list_lans(const Json::Value& arguments);
Answer count_wan_traffic(const Json::Value& arguments);
Answer count_private_traffic(const Json::Value& arguments);
Answer find_ifname(const Json::Value& arguments);
Answer show_default(const Json::Value& arguments);
Answer report_delegations(const Json::Value& arguments);
Answer report_lan_ports(const Json::Value& arguments);
Answer report_versions(const Json::Value& arguments);

}  // namespace nm::work

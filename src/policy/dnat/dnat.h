// Port forwards and one-to-one NAT: the array `PORT_FORWARDING` of the firewall document. A list becomes the
// members of the ipsets DNAT<index> (the sources that a forward admits), the chains PORT_FORWARDING,
// HAIRPIN_FWD and HAIRPIN_MASQ of the nat table (the forward itself, and LAN hosts that use it by the WAN
// address), and the chain DNATPREROUTING of the mangle table, which marks replies so that they leave by the
// port that the connection came in by (kernel/marks.h).
//
// The chains have to be there. Each table is replaced in one step: what cannot be loaded leaves the old
// rules.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>
#include <vector>

#include "interfaces/uplink/available_info.h"

#pragma GCC visibility push(default)

/// One forward as rules are written from it.
struct dnat_rule {
    dnat_rule();
    ~dnat_rule();

    int32_t type;     ///< 1 for "port_forwarding", 0 for "1to1NAT"
    int32_t enabled;  ///< 1 or 0
    std::string ifname;
    std::string lan_ip;
    std::string protocol;  ///< in lower case
    std::string wan_portname;
    std::string tcp_wan_port;  ///< ports, ranges with ":" and lists with ","; the same below
    std::string udp_wan_port;
    std::string lan_port;
    std::vector<std::string> allowed_remote_ips;
    std::string ipset_name;
};

/// Replaces the forwards. One that names a service of the registry as `WAN_SERVICE` and has no WAN ports gets
/// the service's; the list keeps the name. `old_rules` tells which sets exist; `new_rules` is given the names
/// of its sets, and an entry of an unknown `TYPE` is disabled in it. `path` is the device document. `error`
/// says which rule was refused; a refused remote address fails nothing, and its rule admits nobody. 0; the
/// code of reading `path` or the uplinks; NM_ERR_BAD_FORMAT for what is not an array, for more than 100
/// entries, and for entries that clash; NM_ERR_SERVICE for rules that cannot be loaded.
int setup_dnat(Json::Value& old_rules, Json::Value& new_rules, std::string& error, std::string path);

/// setup_dnat() with the stored list, whose sets exist. 0, also without a list.
int reload_dnat(std::string path);

/// Reads an entry of the list; `device` is the device document. Numbers count as their text.
void dnat_jsontostruct(Json::Value& rule, Json::Value& device, dnat_rule* out);

/// Append the lines of an entry to the script for the sets and that for the nat table, or to that for the
/// mangle table. An entry that is disabled or has a value that is not plain text has none; an uplink without
/// an IPv4 address marks no replies.
void gen_dnat_rule(Json::Value& rule, Json::Value& device, std::string& ipset_text, std::string& rule_text);
void gen_dnat_prerouting_rule(Json::Value& rule, Json::Value& device,
                              std::vector<available_base_wan_status>& wans, std::string& rule_text);

/// Runs a script of `chain`; if the restore command refuses a line, `error` says of which entry of `rules` it
/// is. 0 or NM_ERR_SERVICE.
int exec_iptables_restore(const char* script, Json::Value& rules, std::string chain, std::string& error);

#pragma GCC visibility pop

// One rule of the firewall, policy or steering documents, as it is read from JSON and as it is written for
// iptables-restore(8). A rule sets its field of the mark (kernel/marks.h) and leaves the chain, so the first
// that matches wins.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>
#include <unordered_map>

#pragma GCC visibility push(default)

/// A parsed rule. Empty texts and zeros match everything. Ports list single ports and ranges ("80:90") as
/// iptables-extensions(8) writes them.
struct firewall_rule {
    std::string protocol;       ///< lower case; "all" for any
    std::string src_ip;         ///< address, network, or first and last address with "-" between them
    std::string src_port;       ///< needs a protocol, as dst_port does
    std::string src_interface;  ///< device that the packet comes in by
    std::string src_seg;        ///< ipset of the segment, "seg-..."
    std::string dst_ip;
    std::string dst_port;
    std::string dst_hostname;
    std::string dst_seg;
    std::string unused1;
    std::string unused2;
    int32_t cid = 0;  ///< fields of the connection mark (kernel/marks.h); 0 does not match on them
    int32_t aid = 0;
    std::string client_os;  ///< the ipset "os.<client_os>" holds the hosts that run it
    uint32_t mark = 0;      ///< what the rule sets under `mask`; a rule with 0 is not written
    uint32_t mask = 0;
};

/// Reads `rule` into `out`; `device` is the device document, in which `SRC_VLAN` and `SRC_LAN` are looked up.
/// What the rule sets follows from how `chain` begins: FIREWALL: the verdict of `ACTION` (ALLOW, DENY);
/// POLICY: the class `GROUP`, a JSON integer; STEER: the port number in `INTERFACE`, 1 to 15, of a rule whose
/// `STEERING` is DIRECT. Services that `SRC_SERVICE` and `DST_SERVICE` name are not read here: whoever writes
/// the rule has put their ports in place (policy/common/named_services.h). Numbers and booleans count as
/// their text; what is not an object counts as a rule without members.
void firewall_jsontostruct(const Json::Value& rule, const Json::Value& device, const char* chain,
                           firewall_rule* out);

/// The line of one rule of `chain`, with its line end. `hostnames` maps host names to ipsets; a name that is
/// not in it does not count as a destination. Empty for a rule that sets nothing, whose segment has no ipset,
/// which is logged, or with a value that no rule can take, which is logged as well.
std::string gen_firewall_rule_internal(std::unordered_map<std::string, std::string>& hostnames,
                                       firewall_rule* rule, const char* chain);

/// The lines of one rule of a document. Ports need a protocol: a rule with ports and without one makes two
/// lines, for TCP and UDP.
std::string gen_firewall_rule(Json::Value& rule, Json::Value& device,
                              std::unordered_map<std::string, std::string>& hostnames, const char* chain);

/// The lines of a list of rules; empty for what is not a list.
std::string gen_firewall_chain(Json::Value& rules, Json::Value& device,
                               std::unordered_map<std::string, std::string>& hostnames, const char* chain);

/// The same for policy rules, which do not match on segments: those members are left out.
std::string gen_firewall_policy_rule_internal(std::unordered_map<std::string, std::string>& hostnames,
                                              firewall_rule* rule, const std::string& chain);
std::string gen_firewall_policy_rule(Json::Value& rule, Json::Value& device,
                                     std::unordered_map<std::string, std::string>& hostnames,
                                     const std::string& chain);
std::string gen_firewall_policy_chain(Json::Value& rules, Json::Value& device,
                                      std::unordered_map<std::string, std::string>& hostnames,
                                      const char* chain);

#pragma GCC visibility pop

namespace nm {

/// Whether every text member of the rule is one. A list where an address should be would otherwise count as
/// no address, and the rule would match everything. Logs the culprit.
bool has_readable_members(const Json::Value& rule);

}  // namespace nm

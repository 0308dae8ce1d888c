// The packet filter's document becomes the chain FIREWALL of the mangle table, and the policy document's
// steering the chain STEER: rules that mark a packet with the verdict or with the port by which it leaves.
//
// A document holds the rules (`RULES`: lists by `SITE`, whose rules stand in the top chain, or by a segment's
// key), the chains of its segments (`CHAIN_NAME`: by top chain, then by key) and where these are entered
// (`SEGMENT_DEPLOYED`: `SITE`, LAN ports or VLAN ids to a key). A chain of a segment is "<top chain>-<key up
// to its first dash>".
#pragma once

#include <json/value.h>

#include <string>

#pragma GCC visibility push(default)

/// Replaces the rules of `old_config` by those of `new_config` in one step: packets meet the old ones or the
/// new ones, and a failure leaves the old ones. `chain`, which has to be there, and the chains of the old
/// segments are emptied; those of the new segments are created and noted in `new_config`, which the caller
/// keeps as the next call's old document. The ipsets of host names are created before and cleared up behind,
/// and dnsmasq starts anew with them.
///
/// 0; the code of reading the device document; the code of the lock; NM_ERR_SERVICE, with `error` telling the
/// list and the number of the rule that was refused ("FIREWALL SITE rule2 failed.").
int setup_firewall(Json::Value& old_config, Json::Value& new_config, std::string table, std::string chain,
                   std::string& error);

/// Runs a script for `iptables-restore` and looks up the rule that it refuses, if any, in the documents that
/// the script was made of. Each rule counts as two lines, whatever it makes, so the number given may be that
/// of a rule before the refused one, or none. 0, whatever else the command prints, or NM_ERR_SERVICE.
int exec_iptables_restore(const char* script, Json::Value& old_config, Json::Value& new_config,
                          const std::string& chain, std::string& error);

#pragma GCC visibility pop

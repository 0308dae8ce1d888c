// Rules by host name: dnsmasq keeps the addresses that a name resolves to in an ipset, HOSTNAME<n>, and the
// rule matches on the set. Which name has which set is the map of services/dns/hostname_ipset.h.
#pragma once

#include <json/value.h>

#include <string>
#include <unordered_map>

#pragma GCC visibility push(default)

/// Gives a set to each host name (`DST_HOSTNAME`) of the document's `RULES` that has none in the map. Names
/// that dnsmasq does not take get none. 0; NM_ERR_BAD_VALUE when all 2,048 names of sets are taken, with the
/// host names that came before in the map.
int create_new_hostname_ipset(std::unordered_map<std::string, std::string>& hostnames, Json::Value& config);

/// Destroys the sets of the map and drops their entries, but those in use: the kernel refuses to destroy a
/// set that a rule names. To be called when the new rules are in force.
void remove_redundant_hostname_ipset(std::unordered_map<std::string, std::string>& hostnames);

#pragma GCC visibility pop

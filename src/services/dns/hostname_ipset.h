// Host names whose addresses dnsmasq keeps in ipsets: lines `ipset=/<host name>/<set>` in the directory that
// dnsmasq reads. The map of the firewall's sets is /var/run/network/dnsmasq.d/ipset.conf.
//
// The functions of the map take no lock of their own. Whoever reads it, changes it and writes it back holds
// the exclusive lock of that path all the while, so a lock in here would wait for its own process.
#pragma once

#include <string>
#include <unordered_map>

#pragma GCC visibility push(default)

/// Replaces `map` by the file's entries, host name to set; empty if there is no file. Always 0.
int read_hostname_ipset_map(std::unordered_map<std::string, std::string>& map);

/// Writes one line per entry, in the map's order, in one step: whatever happens, the file holds the old map
/// or the new one. An entry that cannot stand in a line of dnsmasq's configuration is logged and left out.
/// Results of writeValue() without lock; NM_ERR_WRITE.
int write_hostname_ipset_map(std::unordered_map<std::string, std::string>& map);

/// Creates the ipset, or empties the one that is there, and has dnsmasq fill it from its next start on with
/// the addresses of `domain`, by a file named after the set. 0; -1 for names that are not possible and for
/// a file that cannot be written.
int dnsmasq_add_ipset(const char* domain, const char* set);

#pragma GCC visibility pop

namespace nm {

/// Whether dnsmasq takes the text for a host name; it does not start on any other. The lengths are those of
/// RFC 1035, and an international name is written in its ASCII form (RFC 5891).
bool is_hostname(const std::string& text);

}  // namespace nm

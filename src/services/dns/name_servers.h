// The name servers that dnsmasq forwards to: the lines of /var/run/network/resolv.dnsmasq.
//
//     nameserver 192.0.2.53 #ID=global
//
// Every line has an owner, "global" for the configured servers or the name of the uplink that learned it, and
// an owner replaces its lines without touching those of others. The newest call's servers come first. The
// lock is "dnsresolvlock". Whoever brings the system up creates the file.
#pragma once

#include <string>
#include <vector>

#pragma GCC visibility push(default)

/// Puts the servers, in their order, before all other lines as those of owner `id`; texts that are no address
/// are left out, and what the same owner had for one of them before is replaced. 0, also for an empty list;
/// NM_ERR_OPEN if the file is not there; NM_ERR_WRITE; NM_ERR_BAD_FORMAT for an owner that cannot stand in
/// a line; the code of the lock.
int insert_dns_server(std::vector<std::string> servers, std::string id);

/// Removes the owner's servers of one family, 2 (IPv4) or 10 (IPv6), and what is not a line of a name server.
/// The file is written in place, so a program that has it open sees the change. 0, also if there was
/// nothing to remove; NM_ERR_OPEN; NM_ERR_WRITE; the code of the lock.
int remove_dns_server(std::string id, unsigned char family);

#pragma GCC visibility pop

namespace nm {

constexpr const char* kNameServersPath = "/var/run/network/resolv.dnsmasq";
constexpr const char* kNameServersLock = "dnsresolvlock";

/// The edits of the two functions above on the file's text.
std::string text_with_servers(const std::string& text, const std::vector<std::string>& servers,
                              const std::string& id);
std::string text_without_servers(const std::string& text, const std::string& id, unsigned char family);

}  // namespace nm

// Names of this device and of its management address in /etc/hosts, which dnsmasq serves to the clients.
//
//     192.0.2.1  appliance  appliance  #swdev1        add_hosts(), write_hosts()
//     198.18.254.1  local.appliance                   add_ip_hostname()
//
// All other lines belong to others and stay byte for byte. The file is replaced in one step, under the lock
// "hostslock", and dnsmasq is restarted before that is released. Common codes: NM_ERR_EMPTY for a missing
// argument; NM_ERR_BAD_FORMAT for one that cannot stand in a line; NM_ERR_OPEN; NM_ERR_WRITE; the code of
// the lock.
#pragma once

#include <optional>
#include <string>

#pragma GCC visibility push(default)

/// The device's host name; the same twice, as it stands in a line, or empty if there is none. Throw as
/// exec().
std::string get_hostname();
std::string get_hoststr();

/// Adds a line for the address of an interface, and drops empty lines. There is no look for an equal line.
/// Without a host name nothing is done: 0.
int add_hosts(const std::string& ip, const std::string& ifname);

/// Removes the lines of one family, 2 (IPv4) or 10 (IPv6), of each interface whose name begins with `ifname`:
/// callers rely on "swdev1" taking "swdev1.100" along. 0, also if there was none; then dnsmasq runs on.
int del_hosts(const std::string& ifname, unsigned char family);

/// Gives the lines of add_hosts() the host name that the device has now; drops empty lines.
int write_hosts();

/// Leaves one of equal lines of add_hosts(), which a bring-up over a device that is up adds once more. 0,
/// also if there were none; then dnsmasq runs on.
int drop_repeated_hosts();

/// Maps a host name to an address, once; drops empty lines.
int add_ip_hostname(std::string ip, std::string hostname);

/// Removes the lines that hold the pair. dnsmasq is restarted even if there was none.
int del_ip_hostname(std::string ip, std::string hostname);

#pragma GCC visibility pop

namespace nm {

constexpr const char* kHostsLock = "hostslock";

/// The edits of the functions above on the file's text; nothing if no line is to be removed.
std::string hosts_with(const std::string& text, const std::string& line);
std::string hosts_renamed(const std::string& text, const std::string& host);
std::optional<std::string> hosts_without(const std::string& text, const std::string& ifname,
                                         unsigned char family);

}  // namespace nm

// The stored configurations: for each interface an options file for pppd, which holds the credentials, and
// an environment file with the stop flag.
#pragma once

#include <string>
#include <vector>

namespace vpppoe {

constexpr const char* kSessionPrefix = "ppp-";

/// Whether a session of this interface can have a name of its own: "ppp-" and the interface's, together at
/// most 15 characters, of letters, digits and the characters _ . - only.
bool is_ifname(const char* ifname);

/// The whole file, empty if it can't be read.
std::string read_file(const std::string& path);

bool is_stored(const std::string& ifname);

/// The interfaces that have a configuration, in the order of their names.
std::vector<std::string> stored_interfaces();

/// Stores for root alone. VPPPOE_ERR_ARG for credentials that pppd can't be given: no user name, more than
/// 255 bytes, or a control character. `changed` is set on success: whether anything differs from before.
int store(const std::string& ifname, const std::string& user, const std::string& password, bool ipv6,
          bool& changed);

/// Removes all that is stored; VPPPOE_ERR_NO_SESSION if that is nothing.
int remove(const std::string& ifname);

/// Takes the stop flag back; what else the environment file holds stays.
int clear_stop_flag(const std::string& ifname);

}  // namespace vpppoe

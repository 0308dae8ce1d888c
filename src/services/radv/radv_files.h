// What the files of the router advertisements and of the DHCPv6 servers have in common: values that stay
// within their statement.
#pragma once

#include <initializer_list>
#include <string>

namespace nm {

/// Whether the name can be part of a file's name. 0; NM_ERR_NO_IFACE for an empty one; NM_ERR_BAD_FORMAT.
int check_ifname(const std::string& ifname);

/// Values for statements of a daemon's file: plain words and blanks between them, or nothing. Whether they
/// are addresses is for the daemon to say. 0 or NM_ERR_BAD_FORMAT.
int check_values(std::initializer_list<std::string> values);

}  // namespace nm

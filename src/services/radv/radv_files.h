// What the files of the router advertisements and of the DHCPv6 servers have in common: values that stay
// within their statement, and a file that is replaced whole under its lock.
#pragma once

#include <initializer_list>
#include <string>

namespace nm {

/// Whether the name can be part of a file's name. 0; NM_ERR_NO_IFACE for an empty one; NM_ERR_BAD_FORMAT.
int check_ifname(const std::string& ifname);

/// Values for statements of a daemon's file: plain words and blanks between them, or nothing. Whether they
/// are addresses is for the daemon to say. 0 or NM_ERR_BAD_FORMAT.
int check_values(std::initializer_list<std::string> values);

/// Replaces `path` by `text` under the lock of its base name; a failure leaves the old file whole. The
/// unfinished file has another suffix, so that no reader of the directory takes it. 0; the codes of the lock;
/// NM_ERR_OPEN; NM_ERR_WRITE.
int replace_locked(const std::string& path, const std::string& text);

}  // namespace nm

// Members of the ipsets that the rule sets match on. The firewall's own scripts edit them, because they know
// which further sets of the appliance mirror a change.
#pragma once

#include <string>

#pragma GCC visibility push(default)

/// Edits an ipset by /usr/sbin/firewall.sh, or one of IPv6 addresses by /usr/sbin/firewall6.sh. `action` is
/// "add", "del" or "flush", which alone may have an empty `member`; otherwise NM_ERR_EMPTY. 0, or the exit
/// code of the script (above 0); NM_ERR_SERVICE if it cannot be run; NM_ERR_BAD_FORMAT for a text that no
/// command can take.
int edit_ipset(const std::string& action, const std::string& set, const std::string& member);
int edit_ip6_ipset(const std::string& action, const std::string& set, const std::string& member);

#pragma GCC visibility pop

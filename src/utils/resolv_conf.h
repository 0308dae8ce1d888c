// The resolver's configuration.
#pragma once

#include <string>
#include <vector>

#pragma GCC visibility push(default)

/// Appends the addresses of the "nameserver " lines of /etc/resolv.conf. 0, or NM_ERR_OPEN.
int resolv_conf_dns_to_vector(std::vector<std::string>& servers);

#pragma GCC visibility pop

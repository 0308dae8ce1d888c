// The subnet of a DHCP server as text.
#pragma once

#include <string>

namespace nm {

/// The dotted mask of a prefix from 1 to 32.
std::string mask_text(int prefix);

/// The network of `ip` under the mask of `prefix`. 0; NM_ERR_BAD_IP, logged with both.
int subnet_of(std::string ip, int prefix, std::string& network);

}  // namespace nm

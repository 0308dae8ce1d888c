// IPv4 addresses as numbers, and the pool of a DHCP server cut around the addresses that are taken.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#pragma GCC visibility push(default)

/// Dotted text to a number in host order. 0; NM_ERR_NULL_ARG; NM_ERR_BAD_IP.
int ipaddr_to_hostint(char* ip, uint32_t* out);

/// The reverse, into a buffer of 16 bytes, which is zeroed first. 0; NM_ERR_NULL_ARG; NM_ERR_BAD_IP.
int hostint_to_ipaddr(char* ip, uint32_t value);

#pragma GCC visibility pop

namespace nm {

/// What is left of the addresses from `start` to `end` without `taken`, as texts "first last" in rising
/// order, added to `ranges`. The bounds are not compared: a reversed pool yields what lies between them. 0 or
/// NM_ERR_BAD_IP.
int split_pool(uint32_t start, uint32_t end, std::vector<uint32_t> taken, std::vector<std::string>& ranges);

}  // namespace nm

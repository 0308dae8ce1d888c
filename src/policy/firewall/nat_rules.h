// NAT rules that the appliance's network service keeps.
#pragma once

#include <cstdint>
#include <string>

#pragma GCC visibility push(default)

/// Deletes the rule for a network (`ip` and the number of bits in `netmask`) between two interfaces. 0, also
/// if there is no such rule; NM_ERR_NULL_ARG; otherwise the code of vservice_call() or of the service.
int delete_nat_rule(char* ip, uint8_t netmask, std::string incoming_if, std::string outgoing_if);

/// The rules as the service shows them, compact JSON, into `data`. 0 or a code as above.
int show_nat_rule(std::string& data);

#pragma GCC visibility pop

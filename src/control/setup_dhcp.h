// Setup of the DHCP services of LAN interfaces.
//
//     {"br_v10": {"ops": 511, "act": 3, "path": "/etc/networkmanagement/dhcp_service.json"}}
//
// Keys are interface names. Each member names its own document; that of a delete is the stored one, also for
// what an alteration replaces. `ops` 0x80 asks for a check of the reservations. The members are worked in the
// order of their keys, a failing one does not stop the others, and the result is that of the last one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#pragma GCC visibility push(default)

/// Sets up the log and works the request; no exception leaves it. 0 or a code of result_codes.h, among them
/// NM_ERR_NULL_ARG, NM_ERR_PARSE, NM_ERR_BAD_FORMAT, NM_ERR_NO_IFACE, NM_ERR_NO_SECTION, NM_ERR_NOT_FOUND,
/// NM_ERR_LOCK, NM_ERR_SERVICE, NM_ERR_POOL_EMPTY, NM_ERR_BAD_ACT.
extern "C" int Setup_dhcpservice(char* json);

/// The table of clients of the interface's stored service: DhcpService::get_dhcp_client_table() with its
/// contract for `out` and `size`, and the codes of create_DHCP_SERVICE(). NM_ERR_NULL_ARG also for a null
/// name.
extern "C" int Get_dhcp_client_table(char* ifname, char* out, size_t size);

/// The request layer. The log has to be set up already.
int setup_dhcpservice(char* json);

/// The target layer: one interface, under the lock "dhcpservice". An interface that is gone or has no address
/// has no service either: its delete is a success.
int _setup_dhcpservice(std::string ifname, uint32_t act, uint32_t opt, std::string path);

#pragma GCC visibility pop

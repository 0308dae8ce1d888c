// Drops packets that no honest sender makes: the chain ATTACK_DEFENSE of the filter table.
#pragma once

#include <cstdint>

#pragma GCC visibility push(default)

/// Fills the chain, which has to be there, in one step; 0 only empties it. The bits:
///
///     1 fragments              2 port scans              4 ICMP of 65500 bytes and more
///     8 ICMP over 1500 bytes   16 ICMP from an uplink's own address (ipset WANIFSET)
///     32 urgent data to NetBIOS ports                    64 SYN with FIN        128 FIN without ACK
///     IP options: 256 security (2), 512 loose source route (3), 1024 strict source route (9),
///     2048 record route (7), 4096 stream id (8), 8192 timestamp (4), 16384 no-operation (1)
///
/// Bit 32768 is accepted and drops nothing. The exit code of the script (the chain is as before unless it is
/// 0); NM_ERR_SERVICE if it cannot be run.
int setup_attack_defense(uint32_t flags);

#pragma GCC visibility pop

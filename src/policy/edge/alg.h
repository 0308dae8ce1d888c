// Helpers for protocols that carry addresses in their payload and would not pass the address translation
// otherwise. Each is a kernel module.
#pragma once

#include <cstdint>

#pragma GCC visibility push(default)

/// Loads the modules whose bits are set (1 FTP, 2 H.323, 4 PPTP, 8 SIP, 16 ESP) and unloads the others.
/// Always 0: a kernel may have a helper built in, lack it, or be using it.
int setup_alg(uint32_t flags);

#pragma GCC visibility pop

// The target VTARGET as iptables hands it to the kernel.
#pragma once

#include <linux/types.h>

/// Bits of `flags`.
enum { XT_VTARGET_RETURN = 1 };

/// A packet's mark gets the bits of `mark` that `mask` covers, and keeps its others.
struct xt_vtarget_info {
    __u32 mark;
    __u32 mask;
    __u32 flags;
};

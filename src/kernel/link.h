// Operations on a network device that do not depend on what the device is for: flags, MTU, name,
// alias, counters.
//
// Every call opens and closes its own socket and reads the kernel afresh: other daemons change links at
// any time, and stale state would be worse than the cost of a dump. Names are at most 15 characters
// (IFNAMSIZ with the terminating zero).
#pragma once

#include <cstdint>

#pragma GCC visibility push(default)

/// Multipath is off for the device. A flag of the appliance's kernel (one bit above IFF_ECHO of
/// linux/if.h); other kernels accept the request and drop the bit.
constexpr unsigned int IFF_NOMULTIPATH = 0x80000;

/// Stores the device's `ifi_flags` (rtnetlink(7)) in `*flags`; a device that does not exist gives 0 and
/// success: callers that must know ask get_iface_index(). NM_ERR_NULL_ARG on a null argument.
int get_iface_flags(const char* ifname, unsigned int* flags);

/// Sets the bits of `flags` (IFF_UP, ...) on the device and leaves the others alone. 0; NM_ERR_NULL_ARG;
/// NM_ERR_EMPTY for an empty mask; NM_ERR_SOCKET, NM_ERR_NL_CONNECT, NM_ERR_SEND, NM_ERR_RECEIVE by the
/// point of failure; NM_ERR_IOCTL when the kernel refuses.
int set_iface_flags(const char* ifname, unsigned int flags);

/// Clears the bits of `flags`; results as set_iface_flags().
int unset_iface_flags(const char* ifname, unsigned int flags);

/// Stores the device's MTU in bytes in `*mtu`; a device that does not exist gives 0 and success.
/// NM_ERR_NULL_ARG on a null argument.
int get_iface_mtu(const char* ifname, int* mtu);

/// get_iface_mtu() with a trace in the log.
int get_if_mtu(const char* ifname, int* mtu);

/// Sets the MTU (bytes). The device is not touched if it has that MTU already. NM_ERR_NULL_ARG,
/// NM_ERR_SOCKET, NM_ERR_IOCTL (no such device, or a value the driver refuses).
int set_if_mtu(char* ifname, int mtu);

/// Renames a device; it is taken down for that, and brought up under its new name if `up` is 1. 0 even
/// when the kernel refuses the name or the final "up" (both are reported on standard error); NM_ERR_NL_ARG,
/// NM_ERR_NL_SOCKET, NM_ERR_NL_CONNECT, NM_ERR_NOMEM, or the code of taking the device down.
int link_rename(const char* from, const char* to, unsigned int up);

/// Checks its arguments and the way to the kernel, and sends nothing: callers rely on the result alone.
/// NM_ERR_NL_ARG, NM_ERR_SOCKET, NM_ERR_NL_CONNECT, NM_ERR_NOMEM.
int set_iface_alias(const char* ifname, const char* alias);

/// Fills eight counters: packets received and sent, bytes received and sent, errors received and sent,
/// drops received and sent. A name without a device leaves them untouched and gives 0.
/// NM_ERR_NULL_ARG, NM_ERR_SOCKET, NM_ERR_NOMEM.
int get_iface_rxtx_stats(const char* ifname, uint64_t* counters);

/// Name of `ifindex` into `name`, a buffer of IFNAMSIZ bytes; returns `name`, or null (if_indextoname(3)).
char* get_iface_name(int ifindex, char* name);

/// Index of the device, 0 if there is none (if_nametoindex(3)).
int get_iface_index(const char* ifname);

#pragma GCC visibility pop

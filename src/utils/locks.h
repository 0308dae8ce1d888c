// Advisory locks between processes: one flock file per base name under /var/lock/network.
#pragma once

#pragma GCC visibility push(default)

// A lock handle is an open descriptor (0 or greater), or a negative result code. The lock file is
// "/var/lock/network/<base>.lck", cut to 63 characters, where <base> is what follows the last "/" of the
// path; two files named alike in two directories therefore exclude each other, deliberately. From 44
// characters on a name and its own ".tmp" share one lock file, from 46 on all names that begin alike: keep
// names short. The directory must exist.
//
// A lock is tried ten times, one second apart, then NM_ERR_LOCK; NM_ERR_LOCK_MEM at once if the kernel
// has no room for lock records. Two locks of one process exclude each other as well.

/// Exclusive lock on the base name of `path`, which may be a plain name. Null: NM_ERR_NULL_ARG.
int lock_ex(const char* path);

/// Exclusive lock on the name of the interface; NM_ERR_NO_IFACE if the index has none.
int lock_ex(int ifindex);

/// Shared lock on the base name of `path`. Null: NM_ERR_NULL_ARG.
int lock_sh(const char* path);

/// Releases and closes the handle; with `remove` deletes the lock file that `path` names.
/// 0, NM_ERR_LOCK or NM_ERR_LOCK_MEM; the handle is closed in every case.
int unlock_ex(int fd, const char* path, bool remove);

/// Releases and closes the handle; the lock file stays. NM_ERR_NO_IFACE if the index has no name any
/// more: the handle then stays open and locked, so whoever may rename or delete the interface locks by
/// name.
int unlock_ex(int fd, int ifindex);

/// Releases and closes the handle; with `remove` deletes the lock file that the handle is open on.
int unlock_sh(int fd, bool remove);

#pragma GCC visibility pop

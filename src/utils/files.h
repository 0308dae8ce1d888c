// Whole files: read, write, copy, and getting them onto the disk.
#pragma once

#include <string>

#pragma GCC visibility push(default)

/// The whole file as text; empty if it can't be read. With `lock` under the shared lock of its base
/// name, whose lock file is deleted afterwards; empty as well if the lock can't be had.
std::string readValue(std::string path, bool lock);

/// Writes `value` as it stands, without a line end. The file is emptied before the lock is taken, so a
/// reader may see it empty, and a failed lock (its code is the result) leaves it so.
///
/// Without `lock`: 0, NM_ERR_OPEN or NM_ERR_WRITE (disk full). With `lock` the unlock's result is the
/// result, so a failed write that could be unlocked yields 0; the failure stands in the log only.
int writeValue(std::string path, std::string value, bool lock);

/// Copies the content, and to a new file owner and mode as well; an existing one keeps of its mode what the
/// source's grants. So no copy is open to more users than its source, at no moment.
///
/// Works under the shared lock of `from` and the exclusive lock of `to`, which are tried both. The code
/// of a lock that can't be had (the source's first), else the result of the last unlock, even after a
/// failed copy. Two files of one base name share one lock, so such a copy blocks itself: NM_ERR_LOCK.
int copy_file(std::string from, std::string to);

/// Gives `to`, made empty if it is not there, owner and mode of `from`: for a copy of a document with
/// passwords, before it has content. A failure is logged.
void copy_access(const std::string& from, const std::string& to);

/// Whether `path` is a regular file, seen through symbolic links.
bool is_file_exists(const std::string& path);

#pragma GCC visibility pop

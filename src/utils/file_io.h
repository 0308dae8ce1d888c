// Reading and writing of whole files beneath the exported functions: no locks, no log of success.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace nm {

/// Everything that can still be read from `fd`; nothing on a read error.
std::optional<std::string> read_to_end(int fd);

/// Writes all of `text`; false on the first error, with errno set.
bool write_all(int fd, std::string_view text);

/// The whole file without lock and without log; nothing if it can't be opened or read.
std::optional<std::string> read_file(const std::string& path);

/// As read_file(), but only a regular file that nobody but root can have written or put there: file and
/// directory belong to uid 0, no other user may write them, and neither name is a symbolic link.
std::optional<std::string> read_trusted_file(const std::string& path);

/// Gives the open file the owner, group and mode of `status`; nobody gets access on the way who has none at
/// the end. False with errno set.
bool take_over_access(int fd, const struct stat& status);

/// Waits until the file's content is on the disk. 0, or NM_ERR_WRITE if that fails or if the file does
/// not hold `expected_size` bytes, so that a cut file never takes a good one's place by a rename.
int sync_to_disk(const std::string& path, std::size_t expected_size);

}  // namespace nm

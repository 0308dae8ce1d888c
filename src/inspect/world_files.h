// The files that set-ups write: what they hold, and a copy of them that can be written without effect.
#pragma once

#include <string>

#include "inspect/world.h"

namespace nm {

/// The files that count, each with its access and its lines.
Things read_files();

/// Puts, in the mount namespace of this process, a throwaway copy over every directory in which set-ups
/// write; what else lies beside, in directories of others, is seen as it is. Sockets and locks have no copy.
/// Needs `scratch`, a directory of a file system of its own. Throws std::runtime_error.
void cover_files(const std::string& scratch);

/// mount(2) that throws std::runtime_error. `flags` are those of mount(2).
void mount_or_throw(const char* source, const std::string& target, const char* type, unsigned long flags,
                    const char* options = nullptr);

/// Gives a directory or file of the tree a second place, writable or not.
void bind_mount(const std::string& source, const std::string& target, bool is_writable);

}  // namespace nm

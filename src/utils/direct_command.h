// Commands that need no shell: a program with plain words, as most of those are that a set-up runs.
#pragma once

#include <optional>
#include <string_view>

namespace nm {

/// Runs a command as system(3) would, without a shell between, if it is a program's absolute path and plain
/// words (utils/shell_text.h), silenced by " >/dev/null 2>&1" or not. Its wait status, -1 if that cannot be
/// had; nothing if it is a command of another form, or cannot be started this way, so that the shell has to
/// be asked.
std::optional<int> run_directly(std::string_view command);

}  // namespace nm

// Text that reaches a shell: values of documents are text and must never become commands.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace nm {

/// Whether the text means nothing but itself to a shell: non-empty, of letters, digits and the
/// characters _ . : / @ % + = , - only.
bool is_plain(std::string_view text);

/// The text as one word of a command: as it is when plain, else in single quotes, where nothing is
/// special. A newline or NUL has no harmless form: nothing, and the caller logs and refuses.
std::optional<std::string> shell_word(std::string_view text);

/// The text as one word of a rule inside an unquoted here-document for a restore command: as it is when
/// plain, else in the double quotes that iptables-restore(8) reads, with what the here-document would expand
/// escaped. Nothing for a newline or NUL.
std::optional<std::string> restore_word(std::string_view text);

}  // namespace nm

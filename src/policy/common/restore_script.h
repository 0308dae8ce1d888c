// Whole rule sets as one script: a here-document that the shell feeds to a restore command. A chain is
// flushed and filled in one transaction, so packets meet the old rules or the new ones, and what cannot be
// loaded leaves the old ones in force. The here-document is expanded by the shell: values reach it through
// utils/shell_text.h.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace nm {

/// How a script begins: the command that reads the here-document. -n keeps the chains that the script does
/// not name.
constexpr const char* kRestoreIp4 = "/bin/cat <<- EOF | /sbin/iptables-restore -n";
constexpr const char* kRestoreIp6 = "/bin/cat <<- EOF | /sbin/ip6tables-restore -n";

/// The same with the command's complaints among its output, for refused_line().
constexpr const char* kReportingRestoreIp4 = "/bin/cat <<- EOF | /sbin/iptables-restore -n 2>&1";

/// A script that feeds `lines`, each with its line end, to a command.
std::string here_document(const std::string& head, const std::string& lines);

/// A script that loads `lines` into a table.
std::string table_script(const std::string& head, const std::string& table, const std::string& lines);

/// The line that appends a rule to a chain: "-A", the chain, and `rest`, which begins with a blank.
std::string append_rule(const std::string& chain, const std::string& rest);

/// Matches packets while the condition `name` (kernel/condition.h) is on, or off if negated. `name` is a word
/// for a restore command already.
std::string condition_match(const std::string& name, bool negated = false);

/// A mark or mask in lower-case hexadecimal, with zeros in front up to so many digits: "0x200f".
std::string hex_mark(uint32_t value, int digits = 0);

/// Matches packets that have none of the bits of `mask`, or some of them if negated.
std::string unmarked_match(const std::string& mask, bool negated = false);

/// The target that gives the bits of `mask` those of `mark`.
std::string set_field(const std::string& mark, uint32_t mask);

/// Runs a script that reports its complaints, and logs what it printed. The number of the line that the
/// command refused, counted from the table's line as 1; 0 if it does not say which, or if nothing could be
/// run; nothing if the output names no refused line, which alone tells success.
std::optional<int> refused_line(const std::string& script);

}  // namespace nm

// Files of lines that other programs read at any moment (/etc/hosts, the list of name servers): read whole,
// edited as text, and replaced in one step.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace nm {

/// Whether a value can stand as one field of a line: it holds neither blanks nor control characters, which
/// would end the field or the line for whoever reads it. True for an empty text.
bool is_one_word(const std::string& text);

/// The lines without their line ends, empty ones included; a last line needs no line end.
std::vector<std::string> split_lines(const std::string& text);

/// The text of the lines that `keep` accepts, each with a line end and otherwise byte for byte as it was.
std::string keep_lines(const std::string& text, const std::function<bool(const std::string& line)>& keep);

/// The whole file into `text`, which stays as it is on failure. 0; NM_ERR_OPEN ("open <path> file failed.").
int read_text(const std::string& path, std::string& text);

/// Puts `text` in the place of an existing file, with its mode and owner: written to `<path>.tmp`, brought
/// to the disk, renamed over. Whatever happens, `path` holds the old text or the new one, whole. The caller
/// holds the file's lock. 0; NM_ERR_OPEN; NM_ERR_WRITE. No `<path>.tmp` stays behind a failure.
int replace_text(const std::string& path, const std::string& text);

}  // namespace nm

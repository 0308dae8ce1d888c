// What a command prints, within a bound of time and size, for those who only look.
#pragma once

#include <string>
#include <vector>

namespace nm {

/// `reason` says why the text cannot be had whole; it is empty if it is.
struct CommandText {
    std::string text;
    std::string reason;
};

/// Runs a command, words of ours that need no quoting, for ten seconds at most.
CommandText read_command(const std::string& command);

/// Its lines, without their ends.
std::vector<std::string> lines_of(const std::string& text);

/// The words of a line, cut at blanks and tabs outside of double quotes.
std::vector<std::string> words_of(const std::string& line);

/// The word behind `key`; empty if it is not there. Words that stand behind one of `keys` are values, not
/// keys.
std::string word_after(const std::vector<std::string>& words, const std::vector<std::string>& keys,
                       const std::string& key);

}  // namespace nm

// Single texts: numbers in them, padding, patterns.
#pragma once

#include <cstdint>
#include <string>

#pragma GCC visibility push(default)

/// The decimal number at the text's beginning (leading blanks and a sign allowed, trailing text ignored);
/// NM_ERR_NOT_A_NUMBER if there is none or if it does not fit.
int string_to_int(std::string value);

/// Decimal text to lower-case hexadecimal; empty for what is negative or no number.
std::string dec_string_to_hex_string(std::string value);

/// Each character as two lower-case hexadecimal digits.
std::string string_to_hex(const std::string& text);

/// Pads with "0" on the left to `width`; a longer text stays as it is.
std::string add_zero_string(std::string text, unsigned width);

/// 1 if the POSIX basic expression matches anywhere in the text; 0 if not, if it does not compile (reported
/// on standard error) and for null.
int regex_match_with_char(const char* text, const char* pattern);

#pragma GCC visibility pop

namespace nm {

/// A stored rate in bits per second: the decimal number at the text's beginning. 0 if there is none, if it is
/// negative or if it does not fit.
uint64_t rate_from_text(const std::string& text);

}  // namespace nm

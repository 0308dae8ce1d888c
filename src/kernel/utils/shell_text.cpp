// Text that reaches a shell: plain values stay as they are, others are quoted, newlines never pass.
#include "kernel/utils/shell_text.h"

namespace nm {

namespace {

// Spelled out, because isalnum() would let the locale decide what a shell sees.
constexpr std::string_view kPlain =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_.:/@%+=,-";
constexpr std::string_view kRefused("\n\0", 2);

}  // namespace

bool is_plain(std::string_view text) {
    return !text.empty() && text.find_first_not_of(kPlain) == std::string_view::npos;
}

std::optional<std::string> shell_word(std::string_view text) {
    if (is_plain(text)) {
        return std::string(text);
    }
    if (text.find_first_of(kRefused) != std::string_view::npos) {
        return std::nullopt;
    }
    std::string word = "'";
    for (const char c : text) {
        if (c == '\'') {
            word += "'\\'";  // Ends the quotes, gives the quote, and begins them anew below.
        }
        word += c;
    }
    return word + "'";
}

}  // namespace nm

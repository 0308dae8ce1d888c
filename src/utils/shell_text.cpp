// Text that reaches a shell: plain values stay as they are, others are quoted, newlines never pass.
#include "utils/shell_text.h"

namespace nm {

namespace {

// Spelled out, because isalnum() would let the locale decide what a shell sees.
constexpr std::string_view kPlain =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_.:/@%+=,-";
constexpr std::string_view kRefused("\n\0", 2);

template <class Escape>
std::optional<std::string> quoted(std::string_view text, const char* quote, Escape escape) {
    if (is_plain(text)) {
        return std::string(text);
    }
    if (text.find_first_of(kRefused) != std::string_view::npos) {
        return std::nullopt;
    }
    std::string word = quote;
    for (const char c : text) {
        word += escape(c);
    }
    return word + quote;
}

}  // namespace

bool is_plain(std::string_view text) {
    return !text.empty() && text.find_first_not_of(kPlain) == std::string_view::npos;
}

std::optional<std::string> shell_word(std::string_view text) {
    // A quote within ends the quotes, is given by itself, and begins them anew.
    return quoted(text, "'", [](char c) { return c == '\'' ? "'\\''" : std::string(1, c); });
}

std::optional<std::string> restore_word(std::string_view text) {
    return quoted(text, "\"", [](char c) -> std::string {
        switch (c) {
            case '"':
                return R"(\\")";
            case '\\':
                return R"(\\\\)";  // once for the rule's quotes, once for the here-document
            case '$':
            case '`':
                return std::string("\\") + c;
            default:
                return std::string(1, c);
        }
    });
}

}  // namespace nm

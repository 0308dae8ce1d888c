// Single texts: numbers in them, padding, patterns.
#include "utils/strings.h"

#include <errno.h>
#include <regex.h>
#include <stdio.h>
#include <stdlib.h>

#include <exception>
#include <memory>

#include "log.h"
#include "result_codes.h"

int string_to_int(std::string value) {
    try {
        return std::stoi(value);
    } catch (const std::exception& error) {
        NM_LOG(Error) << "stoi fail. value: " << value << ", error:" << error.what();
        return NM_ERR_NOT_A_NUMBER;
    }
}

std::string dec_string_to_hex_string(std::string value) {
    const int number = string_to_int(value);
    if (number < 0) {
        return {};
    }
    char text[16];
    (void)snprintf(text, sizeof(text), "%x", static_cast<unsigned int>(number));
    return text;
}

std::string string_to_hex(const std::string& text) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        hex += kDigits[byte >> 4];
        hex += kDigits[byte & 0x0f];
    }
    return hex;
}

std::string add_zero_string(std::string text, unsigned width) {
    return text.size() < width ? std::string(width - text.size(), '0') + text : text;
}

int regex_match_with_char(const char* text, const char* pattern) {
    if (text == nullptr || pattern == nullptr) {
        return 0;
    }
    regex_t expression;
    if (regcomp(&expression, pattern, REG_NOSUB) != 0) {
        (void)fputs("Could not compile regex\n", stderr);
        return 0;
    }
    const std::unique_ptr<regex_t, void (*)(regex_t*)> owner(&expression, &regfree);
    return regexec(&expression, text, 0, nullptr, 0) == 0 ? 1 : 0;
}

namespace nm {

uint64_t rate_from_text(const std::string& text) {
    errno = 0;
    const uint64_t rate = strtoull(text.c_str(), nullptr, 10);
    return errno != 0 || text.find('-') != std::string::npos ? 0 : rate;
}

}  // namespace nm

// The words of rules.
#include "inspect/rule_words.h"

#include <netdb.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string_view>
#include <vector>

#include "utils/shell_text.h"

namespace nm {

namespace {

/// What the commands know without /etc/protocols (xshared.c: xtables_chain_protos).
constexpr std::array<std::string_view, 11> kProtocols{"all",       "tcp", "udp", "udplite", "icmp", "icmpv6",
                                                      "ipv6-icmp", "esp", "ah",  "sctp",    "dccp"};
constexpr std::array<std::string_view, 6> kWithPorts{"all", "tcp", "udp", "udplite", "sctp", "dccp"};

/// A number as xtables_strtoui() reads it: of base 10, 8 ("010") or 16 ("0x10"); -1 for what is none.
long number_of(const std::string& text, long most) {
    char* end = nullptr;
    const bool is_number = !text.empty() && text[0] >= '0' && text[0] <= '9';
    const unsigned long number = is_number ? strtoul(text.c_str(), &end, 0) : 0;
    return is_number && *end == '\0' && number <= static_cast<unsigned long>(most) ? static_cast<long>(number)
                                                                                   : -1;
}

bool is_port(const std::string& text) {
    constexpr long kLast = 65535;
    return number_of(text, kLast) >= 0 || getservbyname(text.c_str(), nullptr) != nullptr;
}

/// A reversed range is loaded for some protocols, and matches nothing.
bool is_in_order(const std::string& first, const std::string& last) {
    constexpr long kLast = 65535;
    const long end = number_of(last, kLast);
    return end < 0 || number_of(first, kLast) <= end;
}

bool is_port_range(const std::string& text, bool may_be_open) {
    const size_t sign = text.find_first_of(":-");
    if (sign == std::string::npos) {
        return is_port(text);
    }
    const std::string first = text.substr(0, sign);
    const std::string last = text.substr(sign + 1);
    return ((may_be_open && first.empty()) || is_port(first)) &&
           ((may_be_open && last.empty()) || is_port(last)) && is_in_order(first, last);
}

/// All pieces, empty ones too, which no command takes.
std::vector<std::string> pieces_of(const std::string& text) {
    std::vector<std::string> pieces;
    size_t begin = 0;
    for (size_t end = text.find(','); end != std::string::npos; end = text.find(',', begin)) {
        pieces.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    pieces.push_back(text.substr(begin));
    return pieces;
}

/// One to four numbers with points between them: what is left out at the end is 0.
bool read_address(const std::string& text, uint32_t& address) {
    constexpr int kParts = 4;
    std::istringstream parts(text);
    std::string part;
    int count = 0;
    address = 0;
    for (; std::getline(parts, part, '.'); ++count) {
        const bool is_byte = !part.empty() && part.size() <= 3 &&
                             part.find_first_not_of("0123456789") == std::string::npos &&
                             std::stoi(part) <= 255;
        if (!is_byte || count >= kParts) {
            return false;
        }
        address |= static_cast<uint32_t>(std::stoi(part)) << (8 * (kParts - 1 - count));
    }
    return count > 0 && text.back() != '.';
}

/// A mask may have gaps.
bool is_network(const std::string& text) {
    constexpr long kBits = 32;
    const size_t slash = text.find('/');
    uint32_t address = 0;
    if (!read_address(text.substr(0, slash), address)) {
        return false;
    }
    const std::string mask = slash == std::string::npos ? "32" : text.substr(slash + 1);
    return number_of(mask, kBits) >= 0 ||
           (mask.find('.') != std::string::npos && read_address(mask, address));
}

}  // namespace

bool is_rule_address(const std::string& text) {
    const size_t range = text.find('-');
    uint32_t first = 0;
    uint32_t last = 0;
    if (!is_plain(text)) {
        return false;
    }
    if (range != std::string::npos) {
        return read_address(text.substr(0, range), first) && read_address(text.substr(range + 1), last) &&
               first <= last;
    }
    const std::vector<std::string> pieces = pieces_of(text);
    return std::all_of(pieces.begin(), pieces.end(), is_network);
}

bool is_rule_ports(const std::string& text, bool is_list) {
    constexpr size_t kMostPlaces = 15;  // xt_multiport.h: XT_MULTI_PORTS
    const std::vector<std::string> pieces = pieces_of(text);
    size_t places = 0;
    for (const std::string& piece : pieces) {
        places += piece.find_first_of(":-") == std::string::npos ? 1 : 2;
    }
    return is_plain(text) && (!is_list || places <= kMostPlaces) && (is_list || pieces.size() == 1) &&
           std::all_of(pieces.begin(), pieces.end(),
                       [is_list](const std::string& piece) { return is_port_range(piece, !is_list); });
}

bool is_rule_protocol(const std::string& text) {
    constexpr long kLast = 255;
    return is_plain(text) && (std::find(kProtocols.begin(), kProtocols.end(), text) != kProtocols.end() ||
                              number_of(text, kLast) >= 0 || getprotobyname(text.c_str()) != nullptr);
}

bool has_ports(const std::string& protocol, const std::string& ports) {
    constexpr std::array<std::string_view, 5> kNumbers{"6", "17", "33", "132", "136"};
    const bool is_list = ports.find(',') != std::string::npos;
    return std::find(kWithPorts.begin(), kWithPorts.end(), protocol) != kWithPorts.end() ||
           (is_list && std::find(kNumbers.begin(), kNumbers.end(), protocol) != kNumbers.end());
}

}  // namespace nm

// The forms of texts.
#include "inspect/formats.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>

#include "utils/ip_text.h"
#include "utils/mac.h"
#include "utils/shell_text.h"

namespace nm {

namespace {

constexpr long kMostSeconds = UINT32_MAX;

bool is_ip4(const std::string& text) {
    return is_plain(text) && is_valid_ip(text.c_str());
}

bool is_ip6(const std::string& text) {
    return is_plain(text) && is_valid_ip6(text.c_str());
}

bool is_ip4_host(const std::string& text) {
    in_addr address{};
    return is_plain(text) && inet_pton(AF_INET, text.c_str(), &address) == 1 && is_device_address(address);
}

/// What the kernel takes for the name of a device (dev_valid_name() of net/core/dev.c).
bool is_ifname(const std::string& text) {
    constexpr size_t kLongest = 15;
    return !text.empty() && text.size() <= kLongest && text != "." && text != ".." &&
           std::none_of(text.begin(), text.end(), [](unsigned char c) {
               return c == '/' || c == ':' || c == '\0' || std::isspace(c) != 0;
           });
}

bool is_digits(const std::string& text, size_t most) {
    return !text.empty() && text.size() <= most && text.find_first_not_of("0123456789") == std::string::npos;
}

/// A leading zero would make it octal to the daemon.
bool is_lease_time(const std::string& text) {
    constexpr size_t kDigits = 10;
    return is_digits(text, kDigits) && (text[0] != '0' || text.size() == 1) &&
           std::stol(text) <= kMostSeconds;
}

bool is_pool_end(const std::string& text) {
    return is_ip4(text) && text != "0.0.0.0" && text != "255.255.255.255";
}

bool is_name(const std::string& text) {
    return std::isalpha(static_cast<unsigned char>(text[0])) != 0 && text.back() != '.' &&
           text.find("..") == std::string::npos && std::all_of(text.begin(), text.end(), [](unsigned char c) {
               return c < 0x80 && (std::isalnum(c) != 0 || c == '-' || c == '.');
           });
}

bool is_server_or_none(const std::string& text) {
    return text.empty() || is_ip4(text) || is_name(text);
}

/// Sets of networks hold none of length 0.
bool is_set_network(const std::string& text) {
    const size_t range = text.find('-');
    Network4 network;
    if (range != std::string::npos) {
        uint32_t first = 0;
        uint32_t last = 0;
        return read_ip4(text.substr(0, range), first) && read_ip4(text.substr(range + 1), last);
    }
    return is_plain(text) && read_network4(text, network) &&
           !(network.first == 0 && network.last == UINT32_MAX);
}

/// As std::stoul(3) of the routes' reader takes it: blanks and a sign before, anything behind.
bool is_metric(const std::string& text) {
    const size_t digit = text.find_first_not_of(" \t\n\v\f\r");
    if (digit == std::string::npos) {
        return false;
    }
    const size_t sign = text[digit] == '-' || text[digit] == '+' ? 1 : 0;
    return std::isdigit(static_cast<unsigned char>(text[digit + sign])) != 0;
}

struct Format {
    const char* name;
    bool (*fits)(const std::string& text);
};

constexpr std::array kFormats{
    Format{"ipv4", is_ip4},
    Format{"ipv4-host", is_ip4_host},
    Format{"ipv6", is_ip6},
    Format{"ipv6-or-none", [](const std::string& text) { return text.empty() || is_ip6(text); }},
    Format{"ipv6-host", [](const std::string& text) { return is_ip6(text) && is_device_address6(text); }},
    Format{"ifname", is_ifname},
    Format{"switch", [](const std::string& text) { return text == "0" || text == "1"; }},
    Format{"lease-time", is_lease_time},
    Format{"pool-end", is_pool_end},
    Format{"server-or-none", is_server_or_none},
    Format{"mac", [](const std::string& text) { return is_plain(text) && is_valid_mac(text.c_str()); }},
    Format{"set-network", is_set_network},
    Format{"metric", is_metric},
};

/// The prefix length that the text behind a slash means; -1 for none.
int prefix_of(const std::string& text) {
    constexpr size_t kDigits = 2;
    if (is_digits(text, kDigits)) {
        return std::stoi(text) <= 32 ? std::stoi(text) : -1;
    }
    uint32_t mask = 0;
    if (!read_ip4(text, mask)) {
        return -1;
    }
    const uint32_t host = ~mask;
    return (host & (host + 1)) == 0 ? mask_to_prefix(text.c_str()) : -1;
}

}  // namespace

bool has_format(const std::string& format, const std::string& text) {
    const auto* const row = std::find_if(kFormats.begin(), kFormats.end(),
                                         [&format](const Format& known) { return known.name == format; });
    return row == kFormats.end() || row->fits(text);
}

long leading_number(const std::string& text) {
    return std::clamp<long>(strtol(text.c_str(), nullptr, 10), INT32_MIN, INT32_MAX);
}

bool read_ip4(const std::string& text, uint32_t& address) {
    in_addr raw{};
    if (!is_plain(text) || inet_pton(AF_INET, text.c_str(), &raw) != 1) {
        return false;
    }
    address = ntohl(raw.s_addr);
    return true;
}

Network4 network_of(uint32_t address, int prefix) {
    const uint32_t mask = prefix <= 0 ? 0 : UINT32_MAX << (32 - std::min(prefix, 32));
    return {address & mask, address | ~mask};
}

bool read_network4(const std::string& text, Network4& network) {
    const size_t slash = text.find('/');
    uint32_t address = 0;
    const int prefix = slash == std::string::npos ? 32 : prefix_of(text.substr(slash + 1));
    if (!read_ip4(text.substr(0, slash), address) || prefix < 0) {
        return false;
    }
    network = network_of(address, prefix);
    return true;
}

std::string show_ip4(uint32_t address) {
    const in_addr raw{htonl(address)};
    std::array<char, INET_ADDRSTRLEN> text{};
    return inet_ntop(AF_INET, &raw, text.data(), text.size());
}

}  // namespace nm

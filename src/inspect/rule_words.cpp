// The words of rules.
#include "inspect/rule_words.h"

#include <netdb.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

#include "inspect/formats.h"
#include "utils/containers.h"
#include "utils/shell_text.h"

namespace nm {

namespace {

/// What the commands know without /etc/protocols (xshared.c: xtables_chain_protos).
constexpr std::array<std::string_view, 11> kProtocols{"all",       "tcp", "udp", "udplite", "icmp", "icmpv6",
                                                      "ipv6-icmp", "esp", "ah",  "sctp",    "dccp"};
constexpr std::array<std::string_view, 6> kWithPorts{"all", "tcp", "udp", "udplite", "sctp", "dccp"};

bool is_number_to(const std::string& text, int most) {
    constexpr size_t kDigits = 5;
    return !text.empty() && text.size() <= kDigits &&
           text.find_first_not_of("0123456789") == std::string::npos && std::stoi(text) <= most;
}

/// -1 for what is none.
int port_of(const std::string& text) {
    constexpr int kLast = 65535;
    if (is_number_to(text, kLast)) {
        return std::stoi(text);
    }
    const servent* const service = getservbyname(text.c_str(), nullptr);
    return service != nullptr ? kLast : -1;
}

/// Either end of a range may be left out.
bool is_port_range(const std::string& text, bool may_be_open) {
    const size_t sign = text.find_first_of(":-");
    if (sign == std::string::npos) {
        return port_of(text) >= 0;
    }
    const std::string first = text.substr(0, sign);
    const std::string last = text.substr(sign + 1);
    const bool is_open = (first.empty() || last.empty()) && may_be_open;
    if (is_open) {
        return first.size() + last.size() > 0 && port_of(first + last) >= 0;
    }
    return port_of(first) >= 0 && port_of(last) >= port_of(first);
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
        return read_ip4(text.substr(0, range), first) && read_ip4(text.substr(range + 1), last) &&
               first <= last;
    }
    std::vector<std::string> words;
    split_into_vector(text, ',', words);
    return !words.empty() && std::all_of(words.begin(), words.end(), [](const std::string& word) {
        Network4 network;
        return read_network4(word, network);
    });
}

bool is_rule_ports(const std::string& text) {
    constexpr size_t kMostPlaces = 15;  // xt_multiport.h: XT_MULTI_PORTS
    std::vector<std::string> words;
    split_into_vector(text, ',', words);
    size_t places = 0;
    for (const std::string& word : words) {
        places += word.find_first_of(":-") == std::string::npos ? 1 : 2;
    }
    const bool is_list = text.find(',') != std::string::npos;
    return is_plain(text) && !words.empty() && (!is_list || places <= kMostPlaces) &&
           std::all_of(words.begin(), words.end(),
                       [is_list](const std::string& word) { return is_port_range(word, !is_list); });
}

bool is_rule_protocol(const std::string& text) {
    constexpr int kLast = 255;
    return is_plain(text) && (std::find(kProtocols.begin(), kProtocols.end(), text) != kProtocols.end() ||
                              is_number_to(text, kLast) || getprotobyname(text.c_str()) != nullptr);
}

bool has_ports(const std::string& protocol) {
    return std::find(kWithPorts.begin(), kWithPorts.end(), protocol) != kWithPorts.end();
}

}  // namespace nm

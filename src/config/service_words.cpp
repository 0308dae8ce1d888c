// The words of the registry: lists of ports, protocols, names.
#include <strings.h>

#include <algorithm>
#include <array>
#include <optional>

#include "config/service_ports.h"
#include "config/service_references.h"
#include "utils/containers.h"
#include "utils/strings.h"

namespace {

using nm::PortRange;

std::string trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(' ');
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

std::optional<uint16_t> port_of(const std::string& text) {
    constexpr size_t kDigits = 5;
    const std::string digits = trimmed(text);
    if (digits.empty() || digits.size() > kDigits ||
        digits.find_first_not_of("0123456789") != std::string::npos) {
        return std::nullopt;
    }
    const int port = std::stoi(digits);
    return port >= 1 && port <= UINT16_MAX ? std::optional(static_cast<uint16_t>(port)) : std::nullopt;
}

std::optional<PortRange> range_of(const std::string& text) {
    const size_t sign = text.find_first_of("~-");
    const std::optional<uint16_t> first = port_of(text.substr(0, sign));
    const std::optional<uint16_t> last = sign == std::string::npos ? first : port_of(text.substr(sign + 1));
    if (!first || !last || *first > *last) {
        return std::nullopt;
    }
    return PortRange{*first, *last};
}

struct ProtocolWord {
    const char* word;
    unsigned mask;
};
constexpr std::array kProtocols{ProtocolWord{"All", nm::kTcp | nm::kUdp}, ProtocolWord{"TCP", nm::kTcp},
                                ProtocolWord{"UDP", nm::kUdp}};

}  // namespace

namespace nm {

bool parse_ports(const std::string& text, std::vector<PortRange>& ranges) {
    std::vector<PortRange> found;
    for (size_t begin = 0; begin <= text.size();) {
        const size_t end = std::min(text.find(',', begin), text.size());
        const std::optional<PortRange> range = range_of(text.substr(begin, end - begin));
        if (!range) {
            return false;
        }
        found.push_back(*range);
        begin = end + 1;
    }
    std::sort(found.begin(), found.end(),
              [](const PortRange& a, const PortRange& b) { return a.first < b.first; });
    const auto twice = std::adjacent_find(
        found.begin(), found.end(), [](const PortRange& a, const PortRange& b) { return a.last >= b.first; });
    if (twice != found.end()) {
        return false;
    }
    ranges = found;
    return true;
}

size_t count_places(const std::vector<PortRange>& ranges) {
    size_t places = 0;
    for (const PortRange& range : ranges) {
        places += range.first == range.last ? 1 : 2;
    }
    return places;
}

unsigned protocol_mask(const std::string& protocol) {
    const auto* const found = std::find_if(
        kProtocols.begin(), kProtocols.end(),
        [&protocol](const ProtocolWord& row) { return strcasecmp(row.word, protocol.c_str()) == 0; });
    return found != kProtocols.end() ? found->mask : 0;
}

bool is_same_service(const std::string& a, const std::string& b) {
    return a.size() == b.size() && strcasecmp(a.c_str(), b.c_str()) == 0;
}

}  // namespace nm

// The delegated prefix that a LAN lies in.
#include "interfaces/lan/delegation.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

#include "log.h"
#include "utils/ip6_prefix.h"
#include "utils/json_text.h"

namespace {

/// 0 for what is no number.
uint32_t read_seconds(const Json::Value& element, const char* key) {
    constexpr unsigned long kInfinite = std::numeric_limits<uint32_t>::max();
    const std::string text = nm::json_scalar(nm::json_member(element, key));
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) {
        return 0;
    }
    try {
        return static_cast<uint32_t>(std::min(std::stoul(text), kInfinite));
    } catch (const std::out_of_range&) {
        return kInfinite;
    }
}

bool holds(const Json::Value& element, const std::string& address) {
    const std::string text = nm::json_scalar(nm::json_member(element, "prefix")) + "/" +
                             nm::json_scalar(nm::json_member(element, "length"));
    std::string prefix;
    unsigned char length = 0;
    return nm::split_ip6_prefix(text, prefix, length) == 0 &&
           prefix == get_ip6_prefix_addr(address.c_str(), length);
}

}  // namespace

nm::Lifetimes nm::delegated_lifetimes(const Json::Value& prefixes, const std::string& address) {
    if (!prefixes.isArray()) {
        return {};
    }
    const auto match = std::find_if(prefixes.begin(), prefixes.end(),
                                    [&](const Json::Value& element) { return holds(element, address); });
    if (match == prefixes.end()) {
        return {};
    }
    const Lifetimes lifetimes{read_seconds(*match, "pltime"), read_seconds(*match, "vltime")};
    if (lifetimes.preferred == 0 || lifetimes.valid < lifetimes.preferred) {
        NM_LOG(Error) << "Lifetimes of a delegated prefix are not usable: " << show_json(*match);
        return {};
    }
    return lifetimes;
}

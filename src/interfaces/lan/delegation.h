// What the list of delegated prefixes in an uplink's record (services/leases/ipv6_record.h) says about a LAN.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

namespace nm {

/// Lifetimes of a prefix in seconds. Valid is never 0 without preferred being 0, nor less than it.
struct Lifetimes {
    uint32_t preferred = 0;
    uint32_t valid = 0;
};

/// The lifetimes of the first prefix in the list that `address` lies in; zeroes if there is none, or if the
/// server gave it lifetimes that no advertisement can carry: one that is 0 or no number, or a valid lifetime
/// below the preferred one (RFC 8415, section 21.22). Those above 32 bits count as infinite.
Lifetimes delegated_lifetimes(const Json::Value& prefixes, const std::string& address);

}  // namespace nm

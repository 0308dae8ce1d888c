// Moving a LAN's entry to another delegated prefix.
#include "config/lan_renumbering.h"

#include <cstdlib>

#include "log.h"
#include "result_codes.h"
#include "utils/ip6_prefix.h"
#include "utils/json_text.h"

namespace {

/// A prefix, as text without host bits and as "<prefix>/<length>".
struct Prefix {
    std::string text;
    unsigned char length = 0;

    std::string whole() const { return text + "/" + std::to_string(length); }
    bool holds(const std::string& address) const {
        return get_ip6_prefix_addr(address.c_str(), length) == text;
    }
};

int read_prefix(const std::string& text, Prefix& prefix) {
    return nm::split_ip6_prefix(text, prefix.text, prefix.length);
}

/// The prefix that the entry is numbered from.
int find_old(const Json::Value& entry, const Prefix& given, Prefix& old) {
    const std::string text = nm::json_string_or(entry, "IP6_PD_PREFIX", "");
    if (!text.empty()) {
        return read_prefix(text, old);
    }
    old.length = given.length;
    old.text = get_ip6_prefix_addr(nm::json_string_or(entry, "IP6_ADDR", "").c_str(), given.length);
    return NM_OK;
}

int move_address(const Prefix& old, const Prefix& given, unsigned char lan_length, std::string& address) {
    IP6_ADDR_OBJ parts;
    const int ret = cast_ip6_addr_to_obj(address, lan_length, old.whole(), &parts);
    if (ret != NM_OK) {
        return ret;
    }
    parts.routing_prefix = given.text;
    parts.routing_prefix_len = given.length;
    return cast_ip6_obj_to_addr(&parts, address);
}

/// Moves a value that is an address in the old prefix; any other one is none of the delegation's.
int move_value(const Prefix& old, const Prefix& given, unsigned char lan_length, Json::Value& value) {
    if (!value.isString() || !old.holds(value.asString())) {
        return NM_OK;
    }
    std::string address = value.asString();
    const int ret = move_address(old, given, lan_length, address);
    value = ret == NM_OK ? Json::Value(address) : value;
    return ret;
}

/// Moves what goes with the address.
int move_rest(const Prefix& old, const Prefix& given, unsigned char lan_length, Json::Value& entry) {
    int ret = NM_OK;
    for (const char* key : {"IP6_RANGE_START", "IP6_RANGE_END"}) {
        if (ret == NM_OK && entry.isMember(key)) {
            ret = move_value(old, given, lan_length, entry[key]);
        }
    }
    if (!nm::json_member(entry, "IP6_DNS_SERVERS").isArray()) {
        return ret;
    }
    for (Json::Value& server : entry["IP6_DNS_SERVERS"]) {
        ret = ret == NM_OK ? move_value(old, given, lan_length, server) : ret;
    }
    return ret;
}

}  // namespace

bool nm::is_delegated_lan(const Json::Value& entry, const std::string& uplink) {
    return entry.isObject() && !uplink.empty() && json_string_or(entry, "IP6_UPLINK", "") == uplink &&
           json_string_or(entry, "IP6_DHCP_PD", "DISABLED") == "ENABLED";
}

int nm::renumber_lan(const std::string& prefix, Json::Value& entry) {
    Prefix old;
    Prefix given;
    int ret = read_prefix(prefix, given);
    if (ret != NM_OK || (ret = find_old(entry, given, old)) != NM_OK) {
        return ret;
    }
    const std::string named = json_string_or(entry, "IP6_PD_PREFIX", "");
    std::string address = json_string_or(entry, "IP6_ADDR", "");
    if (!named.empty() && old.whole() == given.whole() && given.holds(address)) {
        return NM_OK;
    }
    const auto lan_length =
        static_cast<unsigned char>(atoi(json_scalar(entry.get("IP6_PREFIX", "64")).c_str()));
    ret = move_address(old, given, lan_length, address);
    if (ret != NM_OK) {
        return ret;
    }
    Json::Value moved = entry;
    moved["IP6_ADDR"] = address;
    moved["IP6_PD_PREFIX"] = given.whole();
    ret = move_rest(old, given, lan_length, moved);
    entry = ret == NM_OK ? moved : entry;
    return ret;
}

// IPv4 addresses, networks and gateways of the device document, and the IPv6 of LANs.
#include <arpa/inet.h>

#include <algorithm>

#include "inspect/checks.h"
#include "inspect/formats.h"
#include "utils/ip6_prefix.h"
#include "utils/ip_text.h"
#include "utils/json_text.h"

namespace nm {

namespace {

bool is_lan(const StaticAddress& address) {
    return address.section == kLanInfos;
}

std::string show_network(const StaticAddress& address) {
    return show_ip4(network_of(address.address, address.prefix).first) + "/" + std::to_string(address.prefix);
}

void check_host(const StaticAddress& own, Findings& findings) {
    constexpr int kPointToPoint = 31;  // RFC 3021: both addresses are hosts
    const Network4 network = network_of(own.address, own.prefix);
    if (own.prefix < kPointToPoint && (own.address == network.first || own.address == network.last)) {
        findings.error(own.place / "IP4_ADDR",
                       show_ip4(own.address) + " is " +
                           (own.address == network.first ? "the address of its network itself"
                                                         : "the broadcast address of its network"),
                       "an address between those two");
    }
}

/// The kernel takes no next hop that is not on the link, nor one that is the device itself.
void check_gateway(const StaticAddress& own, Findings& findings) {
    const Network4 network = network_of(own.address, own.prefix);
    uint32_t gateway = 0;
    const Place place = own.place / "IP4_GW";
    if (is_lan(own) || own.gateway.empty()) {
        return;
    }
    if (!read_ip4(own.gateway, gateway)) {
        findings.error(place, show_value(place, own.gateway) + " is not valid", "an IPv4 address");
    } else if (gateway < network.first || gateway > network.last) {
        findings.error(place, own.gateway + " is not in the network " + show_network(own) + " of the uplink",
                       "an address of that network");
    } else if (gateway == own.address) {
        findings.error(place, own.gateway + " is the address of the uplink itself",
                       "that of the next router");
    }
}

std::string name_of(const StaticAddress& address) {
    return (is_lan(address) ? "the LAN " : "the uplink ") + address.ifname;
}

/// Two uplinks may lie in one network of a provider, each with a table of its own.
void check_pair(const StaticAddress& one, const StaticAddress& other, Findings& findings) {
    if (one.address == other.address) {
        findings.error(other.place / "IP4_ADDR",
                       show_ip4(one.address) + " is that of " + name_of(one) + ", too",
                       "an address of its own for each interface");
        return;
    }
    const bool has_lan = is_lan(one) || is_lan(other);
    if (has_lan && overlap(network_of(one.address, one.prefix), network_of(other.address, other.prefix))) {
        findings.error(
            other.place / "IP4_ADDR",
            "the network " + show_network(other) + " overlaps " + show_network(one) + " of " + name_of(one),
            "a network that no other LAN or uplink has");
    }
    if (!has_lan && !one.gateway.empty() && one.gateway == other.gateway) {
        findings.error(other.place / "IP4_GW", other.gateway + " is the gateway of " + name_of(one) + ", too",
                       "a gateway of its own for each uplink");
    }
}

/// Servers that are none are passed over when they are set.
void check_servers_of(const Place& place, const Json::Value& servers, Findings& findings) {
    for (Json::ArrayIndex i = 0; servers.isArray() && i < servers.size(); ++i) {
        const Place server = place / i;
        if (!servers[i].isString() || !has_format("ipv4", servers[i].asString())) {
            findings.warn(server, show_value(server, servers[i]) + " is not a name server",
                          "an IPv4 address");
        }
    }
}

void check_servers(const Json::Value& device, Findings& findings) {
    for (const InfoSection& row : kUplinkInfos) {
        for_each_entry({kDevice, std::string("/") + row.infos}, json_member(device, row.infos),
                       [&](const Place& place, const std::string&, const Json::Value& entry) {
                           check_servers_of(place / "IP4_DNS", json_member(entry, "IP4_DNS"), findings);
                       });
    }
}

/// One LAN's IPv6 as it is stored.
struct Lan6 {
    Place place;
    const Json::Value& entry;

    std::string text(const char* key, const char* fallback = "") const {
        const Json::Value& member = json_member(entry, key);
        return member.isNull() ? fallback : json_scalar(member);
    }
};

void check_uplink6(const Lan6& lan, const Json::Value& device, Findings& findings) {
    const std::string uplink = lan.text("IP6_UPLINK");
    const std::string type = lan.text("IP6_TYPE", "DISABLED");
    const bool needs_one = type == "RELAY";
    const bool is_known = !json_member(json_member(device, "WAN_PORT"), uplink).empty();
    if ((needs_one || (type == "STATIC" && !uplink.empty())) && !is_known) {
        findings.error(lan.place / "IP6_UPLINK",
                       uplink.empty() ? "the LAN has no uplink to relay to" : uplink + " is not a WAN port",
                       "the name of a port of WAN_PORT");
    }
}

bool is_number_between(const std::string& text, unsigned long least, unsigned long most) {
    constexpr size_t kDigits = 10;
    const bool is_number =
        !text.empty() && text.size() <= kDigits && text.find_first_not_of("0123456789") == std::string::npos;
    return is_number && std::stoul(text) >= least && std::stoul(text) <= most;
}

void check_seconds(const Lan6& lan, const char* key, const char* fallback, unsigned long least,
                   unsigned long most, Findings& findings) {
    if (!is_number_between(lan.text(key, fallback), least, most)) {
        const Place place = lan.place / key;
        findings.error(place, show_value(place, lan.text(key)) + " is not valid",
                       "seconds, a number from " + std::to_string(least) + " to " + std::to_string(most));
    }
}

void check_range6(const Lan6& lan, int prefix, Findings& findings) {
    const auto length = static_cast<unsigned char>(prefix);
    const std::string network = get_ip6_prefix_addr(lan.text("IP6_ADDR").c_str(), length);
    for (const char* const key : {"IP6_RANGE_START", "IP6_RANGE_END"}) {
        const std::string end = lan.text(key);
        if (!is_valid_ip6(end.c_str()) || get_ip6_prefix_addr(end.c_str(), length) != network) {
            const Place place = lan.place / key;
            findings.error(
                place, end.empty() ? std::string(key) + " is missing" : end + " is not in the LAN's prefix",
                "an address in " + network + "/" + std::to_string(prefix));
        }
    }
}

void check_service6(const Lan6& lan, Findings& findings) {
    const std::string service = lan.text("IP6_SERVICE_TYPE", "DISABLED");
    const int prefix = static_cast<int>(leading_number(lan.text("IP6_PREFIX", "64")));
    const bool is_numbered = lan.text("IP6_TYPE") == "STATIC" && is_valid_ip6(lan.text("IP6_ADDR").c_str());
    if (!is_numbered || service == "DISABLED" || prefix < 1 || prefix > 128) {
        return;
    }
    if (lan.text("IP6_LIFETIME", "3600") != "0") {
        check_seconds(lan, "IP6_LIFETIME", "3600", 30, 9000, findings);
    }
    check_seconds(lan, "IP6_LEASE_TIME", "86400", 300, 2592000, findings);
    if (service == "STATEFUL") {
        check_range6(lan, prefix, findings);
    }
}

}  // namespace

void check_addresses(const DocumentSet& documents, Findings& findings) {
    const Json::Value& device = documents.root(kDevice);
    const std::vector<StaticAddress> addresses = static_addresses(device);
    for (size_t i = 0; i < addresses.size(); ++i) {
        check_host(addresses[i], findings);
        check_gateway(addresses[i], findings);
        for (size_t earlier = 0; earlier < i; ++earlier) {
            check_pair(addresses[earlier], addresses[i], findings);
        }
    }
    check_servers(device, findings);
}

void check_lan_ipv6(const DocumentSet& documents, Findings& findings) {
    const Json::Value& device = documents.root(kDevice);
    for_each_entry({kDevice, std::string("/") + kLanInfos}, json_member(device, kLanInfos),
                   [&](const Place& place, const std::string&, const Json::Value& entry) {
                       const Lan6 lan{place, entry};
                       check_uplink6(lan, device, findings);
                       check_service6(lan, findings);
                   });
}

}  // namespace nm

// The tables of families and members, and how values are read and shown.
#include "nm_bin/members.h"

#include <arpa/inet.h>
#include <networkinterface.h>

#include <algorithm>
#include <array>
#include <cctype>

#include "nm_bin/secrets.h"

namespace nm_bin {

namespace {

constexpr std::string_view kDevices = "/etc/networkmanagement/device_info.json";
constexpr std::string_view kDhcpServices = "/etc/networkmanagement/dhcp_service.json";

constexpr std::array kFamilies{
    Family{FamilyId::WanPort, "wan", kDevices, "WAN_PORT", true, "Setup_wanif", 63, 63},
    Family{FamilyId::PrivatePort, "private", kDevices, "PRIVATE_PORT", true, "Setup_privateif", 63, 63},
    Family{FamilyId::RglinkPort, "rglink", kDevices, "RGLINK_PORT", true, "Setup_rglinkif", 63, 63},
    Family{FamilyId::Vlan, "vlan", kDevices, "VLAN_SEG", false, "Setup_vlanbr", 7, 7},
    Family{FamilyId::LanPort, "lan", kDevices, "LAN_PORT", true, "Setup_lanif", 63, 63},
    Family{FamilyId::WanInfo, "wan", kDevices, "WAN_IFACE_INFO", false, "Setup_waninfo", 15, 15},
    Family{FamilyId::PrivateInfo, "private", kDevices, "PRIVATE_IFACE_INFO", false, "Setup_privateinfo", 1,
           1},
    Family{FamilyId::RglinkInfo, "rglink", kDevices, "RGLINK_IFACE_INFO", false, "Setup_rglinkinfo", 7, 7},
    Family{FamilyId::LanInfo, "lan", kDevices, "LAN_IFACE_INFO", false, "Setup_laninfo", 31, 31},
    Family{FamilyId::Dhcp, "dhcp", kDhcpServices, "DHCP_SERVICE", false, "Setup_dhcpservice", 511, 511},
};

constexpr unsigned bit(FamilyId id) {
    return 1U << static_cast<unsigned>(id);
}

constexpr unsigned kUplinkPorts =
    bit(FamilyId::WanPort) | bit(FamilyId::PrivatePort) | bit(FamilyId::RglinkPort);
constexpr unsigned kPorts = kUplinkPorts | bit(FamilyId::LanPort);
constexpr unsigned kSessions = bit(FamilyId::WanInfo) | bit(FamilyId::RglinkInfo);
constexpr unsigned kUplinks = kSessions | bit(FamilyId::PrivateInfo);
constexpr unsigned kWan = bit(FamilyId::WanInfo);
constexpr unsigned kPrivate = bit(FamilyId::PrivateInfo);
constexpr unsigned kLan = bit(FamilyId::LanInfo);
constexpr unsigned kVlan = bit(FamilyId::Vlan);
constexpr unsigned kDhcp = bit(FamilyId::Dhcp);

constexpr unsigned kDhcpOps = OPT_DHCP_CHECK;
constexpr unsigned kVlanMtu = 1;
constexpr unsigned kVlanStp = 2;

constexpr std::string_view kRates = "0..100000000000";
constexpr std::string_view kSwitch = "ENABLED|DISABLED";

constexpr std::array kMembers{
    Member{kPorts, "interface", "INTERFACE", 0, ValueKind::Name, "", "", "kernel interface of the port", "",
           true},
    Member{kPorts, "dev-type", "DEV_TYPE", 0, ValueKind::Choice, "ethernet|virtio", "", "type of the device",
           "", true},
    Member{kPorts, "mtu", "MTU", OPT_LINK, ValueKind::Number, "68..65535", "1500", "largest packet, bytes"},
    Member{kUplinkPorts, "prio", "PRIO", OPT_RATE, ValueKind::Number, "0..255", "1",
           "priority among uplinks"},
    Member{kUplinkPorts, "line-rate", "ISP_BW", OPT_RATE, ValueKind::Number, kRates, "0",
           "speed of the line, bits per second"},
    Member{kUplinkPorts, "rx-rate", "RX_RATE", OPT_RATE, ValueKind::Number, kRates, "line-rate",
           "shaped rate of receiving, bits per second"},
    Member{kUplinkPorts, "tx-rate", "TX_RATE", OPT_RATE, ValueKind::Number, kRates, "line-rate",
           "shaped rate of sending, bits per second"},
    Member{bit(FamilyId::PrivatePort), "group", "PRIVATE_GROUP_ID", OPT_RATE, ValueKind::Text, "", "",
           "group of the private circuit"},
    Member{bit(FamilyId::LanPort), "vlans", "VLANS", OPT_IP6, ValueKind::Vlans, "", "", "VLANs of a trunk"},
    Member{bit(FamilyId::LanPort), "vlan", "VLAN_ID", 0, ValueKind::Number, "0..4095", "0",
           "VLAN of a virtual machine's port", "", true},
    Member{kVlan, "mtu", "MTU", kVlanMtu, ValueKind::Number, "68..65535", "1500",
           "largest packet of the bridge and its members, bytes"},
    Member{kVlan, "stp", "STP", kVlanStp, ValueKind::Choice, "0|1", "0", "spanning tree"},
    Member{kSessions, "ipv4", "IP4_TYPE", OPT_IP4, ValueKind::Choice, "DHCP|STATIC|PPPOE|DISABLED", "",
           "way to the IPv4 address"},
    Member{kPrivate, "ipv4", "IP4_TYPE", OPT_IP4, ValueKind::Choice, "STATIC|DISABLED", "",
           "way to the IPv4 address"},
    Member{kLan, "ipv4", "IP4_TYPE", OPT_IP4, ValueKind::Choice, "STATIC|DHCP|DISABLED", "",
           "way to the IPv4 address"},
    Member{kUplinks | kLan, "address", "IP4_ADDR", OPT_IP4, ValueKind::Network4, "", "",
           "static IPv4 address", "IP4_PREFIX"},
    Member{kUplinks, "gateway", "IP4_GW", OPT_IP4, ValueKind::Address4, "", "", "next hop of the uplink"},
    Member{kUplinks, "dns", "IP4_DNS", OPT_IP4, ValueKind::List4, "", "", "name servers"},
    Member{kSessions, "username", "USERNAME", OPT_LINK, ValueKind::Text, "", "", "user of the PPPoE session"},
    Member{kSessions, "password", "PASSWORD", OPT_LINK, ValueKind::Secret, "", "", "password of the session"},
    Member{kWan, "ipv6", "IP6_TYPE", OPT_IP6, ValueKind::Choice, "DHCPV6|SLAAC|STATIC|PPPOEV6|DISABLED", "",
           "way to the IPv6 address"},
    Member{kLan, "ipv6", "IP6_TYPE", OPT_IP6, ValueKind::Choice, "STATIC|RELAY|DISABLED", "DISABLED",
           "way to the IPv6 address"},
    Member{kWan | kLan, "address6", "IP6_ADDR", OPT_IP6, ValueKind::Network6, "", "", "static IPv6 address",
           "IP6_PREFIX"},
    Member{kWan, "gateway6", "IP6_GW", OPT_IP6, ValueKind::Address6, "", "", "next hop of IPv6"},
    Member{kWan, "dns6", "IP6_DNS", OPT_IP6, ValueKind::List6, "", "", "name servers of IPv6"},
    Member{kWan | kLan, "delegation", "IP6_DHCP_PD", OPT_IP6, ValueKind::Choice, kSwitch, "DISABLED",
           "IPv6 prefix delegation"},
    Member{kLan, "uplink6", "IP6_UPLINK", OPT_IP6, ValueKind::Name, "", "",
           "port whose IPv6 prefix the LAN has"},
    Member{kLan, "service6", "IP6_SERVICE_TYPE", OPT_IP6_SERVICE, ValueKind::Choice,
           "STATEFUL|SLAAC_RDNSS|DISABLED", "DISABLED", "what clients get IPv6 addresses from"},
    Member{kLan, "start6", "IP6_RANGE_START", OPT_IP6_SERVICE, ValueKind::Address6, "", "",
           "first address of DHCPv6"},
    Member{kLan, "end6", "IP6_RANGE_END", OPT_IP6_SERVICE, ValueKind::Address6, "", "",
           "last address of DHCPv6"},
    Member{kLan, "lifetime6", "IP6_LIFETIME", OPT_IP6_SERVICE, ValueKind::Number, "0..9000", "3600",
           "lifetime of the router for its clients, seconds: 0, or 30 and more"},
    Member{kLan, "lease6", "IP6_LEASE_TIME", OPT_IP6_SERVICE, ValueKind::Number, "300..2592000", "86400",
           "lease time of DHCPv6, seconds"},
    Member{kLan, "dns6", "IP6_DNS_SERVERS", OPT_IP6_SERVICE, ValueKind::List6, "", "",
           "name servers of IPv6"},
    Member{kLan, "access", "ACCESS_TO_LOCAL", OPT_LINK, ValueKind::Choice, "TRUE|FALSE", "TRUE",
           "whether the other LANs can be reached"},
    Member{kDhcp, "dhcp", "SERVICE", kDhcpOps, ValueKind::Choice, "SERVER|RELAY|DISABLED", "SERVER",
           "DHCP service of the interface"},
    Member{kDhcp, "dhcp-start", "START_IP", kDhcpOps, ValueKind::Address4, "", "192.168.100.1",
           "first address of the pool"},
    Member{kDhcp, "dhcp-end", "END_IP", kDhcpOps, ValueKind::Address4, "", "192.168.100.100",
           "last address of the pool"},
    Member{kDhcp, "dhcp-lease", "LEASE_TIME", kDhcpOps, ValueKind::Number, "1..4294967295", "86400",
           "lease time, seconds"},
    Member{kDhcp, "dhcp-dns", "DNS_SERVERS", kDhcpOps, ValueKind::List4, "", "",
           "name servers, the first ones"},
    Member{kDhcp, "dhcp-dns1", "PRIMARY_DNS", kDhcpOps, ValueKind::Address4, "", "192.168.100.254",
           "name server after those"},
    Member{kDhcp, "dhcp-dns2", "SECONDARY_DNS", kDhcpOps, ValueKind::Address4, "", "",
           "the last name server"},
    Member{kDhcp, "dhcp-relays", "RELAY_SERVERS", kDhcpOps, ValueKind::List4, "", "", "servers to relay to"},
};

Arguments split(std::string_view text, char at) {
    Arguments words;
    split_into_vector(std::string(text), at, words);
    return words;
}

/// The number that all of the word is; -1 for any other word. Rates may end in k, M or G.
long long read_number(std::string word) {
    constexpr size_t kMostDigits = 12;
    constexpr std::string_view kUnits = "kMG";
    long long unit = 1;
    const size_t place = word.empty() ? std::string::npos : kUnits.find(word.back());
    if (place != std::string_view::npos) {
        word.pop_back();
        for (size_t i = 0; i <= place; ++i) {
            unit *= 1000;
        }
    }
    const bool is_number = !word.empty() && word.size() <= kMostDigits &&
                           word.find_first_not_of("0123456789") == std::string::npos;
    return is_number ? std::stoll(word) * unit : -1;
}

bool is_in_range(std::string_view range, long long number) {
    const size_t dots = range.find("..");
    return number >= std::stoll(std::string(range.substr(0, dots))) &&
           number <= std::stoll(std::string(range.substr(dots + 2)));
}

bool take_number(const Member& member, const std::string& word, Json::Value& value) {
    const long long number = read_number(word);
    value = std::to_string(number);
    return number >= 0 && is_in_range(member.range, number);
}

bool take_choice(const Member& member, const std::string& word, Json::Value& value) {
    for (const std::string& choice : split(member.range, '|')) {
        const bool is_same =
            std::equal(word.begin(), word.end(), choice.begin(), choice.end(),
                       [](unsigned char a, unsigned char b) { return std::toupper(a) == std::toupper(b); });
        if (is_same) {
            value = choice;
            return true;
        }
    }
    return false;
}

using IsValid = bool (*)(const std::string& word);

bool is_ip4(const std::string& word) {
    return is_valid_ip(word.c_str());
}

bool is_ip6(const std::string& word) {
    return is_valid_ip6(word.c_str());
}

/// One address; none takes the stored one away.
template <IsValid is_valid>
bool take_address(const Member& /*member*/, const std::string& word, Json::Value& value) {
    value = word;
    return word.empty() || is_valid(word);
}

template <IsValid is_valid>
bool take_list(const Member& /*member*/, const std::string& word, Json::Value& value) {
    value = Json::Value(Json::arrayValue);
    const Arguments words = split(word, ',');
    for (const std::string& each : words) {
        value.append(each);
    }
    return std::all_of(words.begin(), words.end(), is_valid);
}

bool is_vlan(const std::string& word) {
    constexpr long long kLast = 4094;
    const long long number = read_number(word);
    return number >= 0 && number <= kLast && word == std::to_string(number);
}

bool take_name(const Member& /*member*/, const std::string& word, Json::Value& value) {
    constexpr size_t kLongest = 15;
    value = word;
    return word.size() <= kLongest && word.find_first_of("/: \t\n\v\f\r") == std::string::npos;
}

/// A control character would be refused, or worse, wherever the text ends up.
bool take_text(const Member& /*member*/, const std::string& word, Json::Value& value) {
    value = word;
    return std::none_of(word.begin(), word.end(), [](unsigned char c) { return std::iscntrl(c) != 0; });
}

/// How a kind of value is read, and what it is called.
struct ValueForm {
    ValueKind kind;
    bool (*take)(const Member& member, const std::string& word, Json::Value& value);
    std::string_view words;
};

constexpr std::array kForms{
    ValueForm{ValueKind::Number, take_number, ""},
    ValueForm{ValueKind::Choice, take_choice, ""},
    ValueForm{ValueKind::Address4, take_address<is_ip4>, "an IPv4 address"},
    ValueForm{ValueKind::Network4, take_address<is_ip4>, "an IPv4 address/prefix length"},
    ValueForm{ValueKind::Address6, take_address<is_ip6>, "an IPv6 address"},
    ValueForm{ValueKind::Network6, take_address<is_ip6>, "an IPv6 address/prefix length"},
    ValueForm{ValueKind::List4, take_list<is_ip4>, "IPv4 addresses, with commas between them"},
    ValueForm{ValueKind::List6, take_list<is_ip6>, "IPv6 addresses, with commas between them"},
    ValueForm{ValueKind::Vlans, take_list<is_vlan>, "VLAN ids, with commas between them"},
    ValueForm{ValueKind::Name, take_name, "a name"},
    ValueForm{ValueKind::Text, take_text, "a text of one line"},
    ValueForm{ValueKind::Secret, take_text, "a text of one line"},
};

const ValueForm& form_of(const Member& member) {
    return *std::find_if(kForms.begin(), kForms.end(),
                         [&member](const ValueForm& form) { return form.kind == member.kind; });
}

/// Takes the prefix length off the word; false if it is none.
bool take_prefix(const Member& member, std::string& word, Json::Value& entry) {
    const long long longest = member.kind == ValueKind::Network4 ? 32 : 128;
    const size_t slash = word.find('/');
    if (member.prefix_key.empty() || slash == std::string::npos) {
        return true;
    }
    const long long length = read_number(word.substr(slash + 1));
    entry[std::string(member.prefix_key)] = std::to_string(length);
    word.erase(slash);
    return length >= 1 && length <= longest;
}

std::string text_of(const Json::Value& value) {
    if (!value.isArray()) {
        return value.isConvertibleTo(Json::stringValue) ? value.asString() : "";
    }
    std::string list;
    for (const Json::Value& element : value) {
        list += (list.empty() ? "" : ",") + text_of(element);
    }
    return list;
}

std::string text_at(const Json::Value& entry, const char* key) {
    return entry.isMember(key) ? text_of(entry[key]) : "";
}

/// A value that makes another one necessary.
struct Need {
    unsigned families;
    const char* key;
    const char* value;
    const char* needed;
};

constexpr std::array kNeeds{
    Need{kUplinks | kLan, "IP4_TYPE", "STATIC", "IP4_ADDR"},
    Need{kSessions, "IP4_TYPE", "PPPOE", "USERNAME"},
    Need{kWan | kLan, "IP6_TYPE", "STATIC", "IP6_ADDR"},
    Need{kPorts, nullptr, nullptr, "INTERFACE"},
    Need{kDhcp, "SERVICE", "SERVER", "START_IP"},
    Need{kDhcp, "SERVICE", "SERVER", "END_IP"},
    Need{kDhcp, "SERVICE", "RELAY", "RELAY_SERVERS"},
};

/// The name of the member that holds the key.
std::string name_of_key(const Family& family, const std::string& key) {
    for (const Member& member : kMembers) {
        if (has_member(family, member) && member.key == key) {
            return std::string(member.name);
        }
    }
    return key;
}

/// A gateway that no packet can reach is a slip of the keyboard.
bool is_gateway_connected(const Json::Value& entry) {
    const std::string prefix = entry.get("IP4_PREFIX", "24").asString();
    const std::string address = text_at(entry, "IP4_ADDR");
    const std::string gateway = text_at(entry, "IP4_GW");
    const auto length = static_cast<unsigned char>(std::max(0LL, read_number(prefix)));
    const auto mask = static_cast<in_addr_t>(prefix_to_network(length));
    in_addr own{};
    in_addr next{};
    return inet_pton(AF_INET, address.c_str(), &own) != 1 ||
           inet_pton(AF_INET, gateway.c_str(), &next) != 1 || ((own.s_addr ^ next.s_addr) & mask) == 0;
}

}  // namespace

const std::vector<Family>& families() {
    static const std::vector<Family> all(kFamilies.begin(), kFamilies.end());
    return all;
}

const std::vector<Member>& members() {
    static const std::vector<Member> all(kMembers.begin(), kMembers.end());
    return all;
}

const Family* family_of_entry(std::string_view entry) {
    const auto* const found = std::find_if(kFamilies.begin(), kFamilies.end(),
                                           [entry](const Family& family) { return family.entry == entry; });
    return found == kFamilies.end() ? nullptr : found;
}

bool has_member(const Family& family, const Member& member) {
    return (member.families & bit(family.id)) != 0;
}

const Member* find_member(const Family& family, const std::string& name) {
    const auto* const found = std::find_if(kMembers.begin(), kMembers.end(), [&](const Member& member) {
        return has_member(family, member) && member.name == name;
    });
    return found == kMembers.end() ? nullptr : found;
}

std::string set_member(const Member& member, const std::string& word, Json::Value& entry) {
    std::string rest = word;
    Json::Value value;
    if (!take_prefix(member, rest, entry) || !form_of(member).take(member, rest, value)) {
        const bool is_secret = member.kind == ValueKind::Secret;
        return std::string(member.name) + " is " + describe_values(member) + ", not " +
               (is_secret ? "this" : word);
    }
    entry[std::string(member.key)] = value;
    return "";
}

std::string show_member(const Member& member, const Json::Value& entry) {
    const std::string text = text_at(entry, std::string(member.key).c_str());
    if (member.kind == ValueKind::Secret && !text.empty()) {
        return kMask;
    }
    const std::string prefix =
        member.prefix_key.empty() ? "" : text_at(entry, std::string(member.prefix_key).c_str());
    return text.empty() || prefix.empty() ? text : text + "/" + prefix;
}

std::string describe_values(const Member& member) {
    const bool has_range = member.kind == ValueKind::Number || member.kind == ValueKind::Choice;
    return std::string(has_range ? member.range : form_of(member).words);
}

std::string check_entry(const Family& family, const Json::Value& entry) {
    for (const Need& need : kNeeds) {
        const bool applies = (need.families & bit(family.id)) != 0 &&
                             (need.key == nullptr || text_at(entry, need.key) == need.value);
        if (applies && text_at(entry, need.needed).empty()) {
            const std::string why =
                need.key == nullptr ? "a port" : name_of_key(family, need.key) + " " + need.value;
            return why + " needs " + name_of_key(family, need.needed);
        }
    }
    const bool is_static = (bit(family.id) & kUplinks) != 0 && text_at(entry, "IP4_TYPE") == "STATIC";
    if (is_static && !is_gateway_connected(entry)) {
        return "gateway " + text_at(entry, "IP4_GW") + " is not in the network of address " +
               text_at(entry, "IP4_ADDR");
    }
    return "";
}

}  // namespace nm_bin

// The variables of the client's reports, and the lease that follows from them.
#include "services/dhcpcd/client_report.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <sstream>
#include <vector>

#include "utils/ip6_prefix.h"
#include "utils/ip_text.h"
#include "utils/json_text.h"

namespace {

using Variable = nm::ReportVariable;

/// How many members of a list are looked at. No provider gives more, and no sender makes us read on.
constexpr int kMembers = 8;

constexpr int kBits = 128;

std::string text_of(const Json::Value& part, const char* key) {
    return nm::json_string_or(part, key, "");
}

/// Seconds and lengths are what they are up to 32 bits; anything else is no number.
std::string number(const std::string& text, uint64_t limit = UINT32_MAX) {
    const bool is_number =
        !text.empty() && text.size() <= 10 && text.find_first_not_of("0123456789") == std::string::npos;
    return is_number && strtoull(text.c_str(), nullptr, 10) <= limit ? text : "";
}

/// Calls `work` with the names of the members of a list: `stem` and a number from 1 on.
template <class Work>
void for_each_name(const std::string& stem, Work work) {
    for (int n = 1; n <= kMembers; ++n) {
        work(stem + std::to_string(n));
    }
}

/// A text goes on behind a NUL, where inet_pton() ends.
bool is_address(const std::string& text) {
    return text.find('\0') == std::string::npos && is_valid_ip6(text.c_str());
}

void append_servers(const std::string& text, Json::Value& servers) {
    std::istringstream words(text);
    std::string word;
    while (words >> word && servers.size() < kMembers) {
        if (is_address(word)) {
            servers.append(word);
        }
    }
}

/// A prefix of a delegation (RFC 8415, section 21.22); null unless it is whole and valid still.
Json::Value delegation(const Variable& variable, const std::string& name) {
    const std::string address = variable(name);
    const std::string length = number(variable(name + "_length"), kBits);
    const std::string preferred = number(variable(name + "_pltime"));
    const std::string valid = number(variable(name + "_vltime"));
    const bool is_whole = nm::is_device_address6(address) && !length.empty() && !preferred.empty();
    if (!is_whole || length == "0" || valid.empty() || valid == "0") {
        return Json::Value();
    }
    Json::Value prefix;
    prefix["prefix"] = get_ip6_prefix_addr(address.c_str(), static_cast<unsigned char>(atoi(length.c_str())));
    prefix["length"] = length;
    prefix["pltime"] = preferred;
    prefix["vltime"] = valid;
    return prefix;
}

/// What a DHCPv6 server has given: the first address, all prefixes, name servers.
Json::Value read_lease(const Variable& variable) {
    Json::Value lease;
    std::string address;
    lease["prefixes"] = lease["dns"] = Json::arrayValue;
    for_each_name("new_dhcp6_ia_na", [&](const std::string& association) {
        for_each_name(association + "_ia_addr", [&](const std::string& name) {
            const bool is_first = address.empty() && variable(name + "_vltime") != "0";
            address = is_first && nm::is_device_address6(variable(name)) ? variable(name) : address;
        });
    });
    lease["address"] = address;
    for_each_name("new_dhcp6_ia_pd", [&](const std::string& association) {
        for_each_name(association + "_prefix", [&](const std::string& name) {
            const Json::Value prefix = delegation(variable, name);
            if (!prefix.isNull()) {
                lease["prefixes"].append(prefix);
            }
        });
    });
    append_servers(variable("new_dhcp6_name_servers"), lease["dns"]);
    return lease;
}

/// The address that was made from an advertised prefix, with the length of that.
void take_own_address(const Variable& variable, const std::string& router, Json::Value& ra) {
    for_each_name(router + "_addr", [&](const std::string& name) {
        const std::string text = variable(name);
        const std::size_t slash = text.find('/');
        const std::string length = slash != std::string::npos ? number(text.substr(slash + 1), kBits) : "";
        if (text_of(ra, "address").empty() && !length.empty() &&
            nm::is_device_address6(text.substr(0, slash))) {
            ra["address"] = text.substr(0, slash);
            ra["length"] = length;
        }
    });
}

void take_links(const Variable& variable, const std::string& router, Json::Value& ra) {
    for_each_name(router + "_prefix_information", [&](const std::string& name) {
        const std::string length = number(variable(name + "_length"), kBits);
        const std::string address = variable(name + "_prefix");
        if (variable(name + "_flags").find('L') != std::string::npos && !length.empty() &&
            nm::is_device_address6(address)) {
            Json::Value link;
            link["prefix"] = address;
            link["length"] = length;
            ra["links"].append(link);
        }
    });
}

/// What the routers of the link advertise (RFC 4861, RFC 8106). One with the lifetime 0 is no default router.
Json::Value read_advertisements(const Variable& variable) {
    Json::Value ra;
    std::string gateway;
    ra["address"] = ra["length"] = "";
    ra["links"] = ra["dns"] = Json::arrayValue;
    for_each_name("nd", [&](const std::string& router) {
        const std::string from = variable(router + "_from");
        const std::string lifetime = number(variable(router + "_lifetime"));
        const bool leads_on = !lifetime.empty() && lifetime != "0" && is_address(from);
        gateway = gateway.empty() && leads_on ? from : gateway;
        take_own_address(variable, router, ra);
        take_links(variable, router, ra);
        for_each_name(router + "_rdnss", [&](const std::string& name) {
            append_servers(variable(name + "_servers"), ra["dns"]);
        });
    });
    ra["gateway"] = gateway;
    return ra;
}

Json::Value nothing(const Variable&) {
    return Json::objectValue;
}

/// The length of the link that the address lies on: of several the longest. None: the whole address.
std::string length_on_link(const std::string& address, const Json::Value& links) {
    int longest = 0;
    for (const Json::Value& link : links) {
        const int length = atoi(text_of(link, "length").c_str());
        const auto cut = static_cast<unsigned char>(length);
        const bool covers = get_ip6_prefix_addr(address.c_str(), cut) ==
                            get_ip6_prefix_addr(text_of(link, "prefix").c_str(), cut);
        longest = covers ? std::max(longest, length) : longest;
    }
    return std::to_string(longest != 0 ? longest : kBits);
}

void combine(Json::Value& record) {
    const Json::Value& dhcp6 = nm::json_member(record, "dhcp6");
    const Json::Value& ra = nm::json_member(record, "ra");
    const std::string leased = text_of(dhcp6, "address");
    const std::string address = !leased.empty() ? leased : text_of(ra, "address");
    const std::string length =
        !leased.empty() ? length_on_link(leased, nm::json_member(ra, "links")) : text_of(ra, "length");
    const std::string gateway = text_of(ra, "gateway");
    Json::Value prefixes = nm::json_member(dhcp6, "prefixes");
    Json::Value servers =
        nm::json_member(dhcp6, "dns").empty() ? nm::json_member(ra, "dns") : nm::json_member(dhcp6, "dns");
    record["curr_ip"] = address;
    record["curr_prefix_length"] = length;
    record["curr_gateway"] = gateway;
    record["curr_pd_prfx"] = prefixes.empty() ? "" : text_of(prefixes[0], "prefix");
    record["curr_pd_prfx_len"] = prefixes.empty() ? "" : text_of(prefixes[0], "length");
    record["pdInfo"] = prefixes.empty() ? Json::Value(Json::arrayValue) : prefixes;
    record["dns"] = servers.empty() ? Json::Value(Json::arrayValue) : servers;
}

}  // namespace

namespace nm {

bool take_client_report(const ReportVariable& variable, Json::Value& record) {
    struct Reader {
        const char* part;
        Json::Value (*read)(const ReportVariable& variable);
    };
    static const std::map<std::string, std::vector<Reader>> readers{
        {"BOUND6", {{"dhcp6", read_lease}}},
        {"RENEW6", {{"dhcp6", read_lease}}},
        {"REBIND6", {{"dhcp6", read_lease}}},
        {"REBOOT6", {{"dhcp6", read_lease}}},
        {"INFORM6", {{"dhcp6", read_lease}}},
        {"EXPIRE6", {{"dhcp6", nothing}}},
        {"RELEASE6", {{"dhcp6", nothing}}},
        {"STOP6", {{"dhcp6", nothing}}},
        {"ROUTERADVERT", {{"ra", read_advertisements}}},
        {"STOPPED", {{"dhcp6", nothing}, {"ra", nothing}}},
        {"DEPARTED", {{"dhcp6", nothing}, {"ra", nothing}}},
    };
    const auto row = readers.find(variable("reason"));
    if (row == readers.end()) {
        return false;
    }
    for (const Reader& reader : row->second) {
        record[reader.part] = reader.read(variable);
    }
    combine(record);
    return true;
}

}  // namespace nm

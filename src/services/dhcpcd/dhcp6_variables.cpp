// The variables of a DHCPv6 lease, line by line: the first rule that fits takes the line.
#include "services/dhcpcd/dhcp6_variables.h"

#include <stdio.h>

#include <vector>

#include "services/files/line_file.h"
#include "utils/containers.h"

namespace {

// No DUID or IAID is longer in hexadecimal digits (RFC 8415, section 11.1), and no address. Formats carry one
// less as the width of a text, and take numbers of nine digits at most, so that none overflows.
constexpr std::size_t kTextSize = 512;

bool has(const std::string& line, const char* words) {
    return line.find(words) != std::string::npos;
}

std::string without_last(std::string text) {
    text.pop_back();
    return text;
}

/// Clients before dhcpcd 10 print values without quotation marks.
std::string quoted(const std::string& line) {
    const std::size_t sign = line.find('=');
    if (sign == std::string::npos || line.compare(sign + 1, 1, "'") == 0) {
        return line;
    }
    return line.substr(0, sign + 1) + "'" + line.substr(sign + 1) + "'";
}

bool read_server_id(const std::string& line, Json::Value& status) {
    if (!has(line, "dhcp6_server_id=")) {
        return false;
    }
    char value[kTextSize] = {};
    (void)sscanf(line.c_str(), "dhcp6_server_id='%511s'", value);  // The quotation mark goes into the value.
    status["dhcp6_server_id"] = value;
    return true;
}

bool read_name_servers(const std::string& line, Json::Value& status) {
    if (!has(line, "dhcp6_name_servers=")) {
        return false;
    }
    const std::string rest = line.substr(line.find('\'') + 1);  // every line that comes here has one
    std::vector<std::string> servers;
    split_into_vector(rest.size() > 1 ? without_last(rest) : "", ' ', servers);
    for (const std::string& server : servers) {
        status["dhcp6_name_servers"].append(server);
    }
    return true;
}

/// An association: for addresses (IA_NA) or for delegated prefixes (IA_PD).
struct Association {
    const char* name;
    const char* member;
    const char* item;
    const char* item_format;
    const char* iaid_format;
    const char* default_key;
};

constexpr Association kAssociations[] = {
    {"dhcp6_ia_na", "ia_na", "ia_addr", "dhcp6_ia_na%9d_ia_addr%9d%511s", "dhcp6_ia_na%9d_iaid='%511s",
     "address"},
    {"dhcp6_ia_pd", "ia_pd", "prefix", "dhcp6_ia_pd%9d_prefix%9d%511s", "dhcp6_ia_pd%9d_iaid='%511s",
     "prefix"},
};

/// Of a line `..._ia_addr1='::1'` or `..._ia_addr1_pltime='60'`.
void read_item(const Association& association, const std::string& line, Json::Value& status) {
    int number = 0;
    int item = 0;  // A later one takes the place of the one before.
    char rest[kTextSize] = {};
    if (sscanf(line.c_str(), association.item_format, &number, &item, rest) != 3) {
        return;
    }
    const std::string text = without_last(rest);
    const std::size_t sign = text.find("='");
    if (sign == std::string::npos) {
        return;
    }
    const std::string key = sign < 2 ? association.default_key : text.substr(1, sign - 1);
    status[association.member][std::to_string(number)][key] = text.substr(sign + 2);
}

void read_iaid(const Association& association, const std::string& line, Json::Value& status) {
    int number = 0;
    char value[kTextSize] = {};
    if (sscanf(line.c_str(), association.iaid_format, &number, value) == 2) {
        status[association.member][std::to_string(number)]["iaid"] = without_last(value);
    }
}

bool read_association(const Association& association, const std::string& line, Json::Value& status) {
    const bool is_item = has(line, association.item);
    if (!has(line, association.name) || (!is_item && !has(line, "iaid"))) {
        return false;
    }
    (is_item ? read_item : read_iaid)(association, line, status);
    return true;
}

void read_line(const std::string& line, Json::Value& status) {
    if (read_server_id(line, status) || read_name_servers(line, status)) {
        return;
    }
    for (const Association& association : kAssociations) {
        if (read_association(association, line, status)) {
            return;
        }
    }
}

}  // namespace

namespace nm {

void read_dhcp6_variables(const std::string& text, Json::Value& status) {
    for (const std::string& line : split_lines(text)) {
        read_line(quoted(line), status);
    }
}

}  // namespace nm

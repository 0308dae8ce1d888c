// Foreign bytes as the variables of a client's report, "name=value" a line: whatever they are, the record has
// addresses, prefixes and numbers or nothing.
#include <map>
#include <sstream>

#include "services/dhcpcd/client_report.h"
#include "target.h"
#include "utils/ip6_prefix.h"
#include "utils/ip_text.h"

namespace {

bool is_number(const Json::Value& value, unsigned long limit) {
    const std::string text = value.asString();
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos && text.size() <= 10 &&
           std::stoul(text) <= limit;
}

bool is_empty_or(const Json::Value& value, bool (*fits)(const std::string& text)) {
    return value.asString().empty() || fits(value.asString());
}

bool is_address(const std::string& text) {
    return text.find('\0') == std::string::npos && is_valid_ip6(text.c_str());
}

bool is_delegation(const Json::Value& prefix) {
    const std::string text = prefix["prefix"].asString();
    return is_number(prefix["length"], 128) && is_number(prefix["pltime"], UINT32_MAX) &&
           is_number(prefix["vltime"], UINT32_MAX) && is_address(text) &&
           get_ip6_prefix_addr(text.c_str(),
                               static_cast<unsigned char>(std::stoul(prefix["length"].asString()))) == text;
}

bool is_sound(const Json::Value& record) {
    bool sound = is_empty_or(record["curr_ip"], nm::is_device_address6) &&
                 is_empty_or(record["curr_gateway"], is_address) &&
                 (record["curr_ip"] == "" || is_number(record["curr_prefix_length"], 128));
    for (const Json::Value& prefix : record["pdInfo"]) {
        sound = sound && is_delegation(prefix);
    }
    for (const Json::Value& server : record["dns"]) {
        sound = sound && is_address(server.asString());
    }
    return sound;
}

}  // namespace

bool holds(const std::string& input) {
    std::istringstream lines(input);
    std::map<std::string, std::string> variables;
    for (std::string line; std::getline(lines, line);) {
        const std::size_t sign = line.find('=');
        variables[line.substr(0, sign)] = sign != std::string::npos ? line.substr(sign + 1) : "";
    }
    Json::Value record;
    bool sound = true;
    for (const char* reason : {"BOUND6", "ROUTERADVERT"}) {
        variables["reason"] = reason;
        const bool is_taken = nm::take_client_report(
            [&](const std::string& name) {
                const auto found = variables.find(name);
                return found != variables.end() ? found->second : "";
            },
            record);
        sound = sound && is_taken && is_sound(record);
    }
    return sound;
}

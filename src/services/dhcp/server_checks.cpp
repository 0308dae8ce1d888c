// The checks of a DHCP server's configuration. The words and the order in which they are looked at are what
// the user interface shows.
#include <algorithm>
#include <cctype>
#include <cstdint>
#include <iterator>

#include "log.h"
#include "result_codes.h"
#include "services/dhcp/DhcpService.h"
#include "services/dhcp/server_pool.h"
#include "services/dhcp/server_reservations.h"
#include "services/dhcp/server_subnet.h"
#include "utils/ip_text.h"
#include "utils/json_text.h"
#include "utils/mac.h"
#include "utils/shell_text.h"

namespace {

/// The words are the parts of a statement, as it treats line ends in literals and in values differently.
template <class... Words>
int refuse(int code, const Words&... words) {
    (NM_LOG(Error) << ... << words);
    return code;
}

/// Whether the address is none that a host can have; the two ends of all addresses are typing errors.
bool is_extreme(const std::string& ip) {
    return ip == "0.0.0.0" || ip == "255.255.255.255";
}

/// A number as the daemon reads it: a leading zero would make it octal, and a larger one would wrap.
bool is_lease_time(const std::string& text) {
    constexpr std::size_t kMaxDigits = 10;
    const bool is_number = text.find_first_not_of("0123456789") == std::string::npos;
    return is_number && text.size() <= kMaxDigits && (text[0] != '0' || text.size() == 1) &&
           std::stoull(text) <= UINT32_MAX;
}

/// An address that the daemon reads as one: the text has no second half behind a NUL either.
bool is_whole_address(const std::string& text) {
    return nm::is_plain(text) && is_valid_ip(text.c_str());
}

/// A name as the daemon's grammar has it: labels of letters, digits and hyphens, with a letter to begin with.
bool is_host_name(const std::string& text) {
    const auto fits = [](unsigned char c) {
        return c < 0x80 && (std::isalnum(c) != 0 || c == '-' || c == '.');
    };
    return std::isalpha(static_cast<unsigned char>(text[0])) != 0 && text.back() != '.' &&
           text.find("..") == std::string::npos && std::all_of(text.begin(), text.end(), fits);
}

/// The daemon looks the name of a server up when it starts.
bool is_server(const std::string& text) {
    return is_whole_address(text) || (!text.empty() && is_host_name(text));
}

/// Converts for a check; the words begin a line of their own in the user interface.
int to_number(std::string ip, uint32_t& number) {
    const int ret = ipaddr_to_hostint(ip.data(), &number);
    return ret == NM_OK ? ret : refuse(ret, "\nipaddr_to_hostint fail. ip: ", ip);
}

struct Bounds {
    uint32_t start;
    uint32_t end;
    std::string text;
};

int check_reserved_address(const std::string& ip, const Bounds& pool) {
    if (is_extreme(ip)) {
        return refuse(NM_ERR_BAD_FORMAT, "\nreserved ip address error. ip: ", ip);
    }
    uint32_t number = 0;
    const int ret = to_number(ip, number);
    if (ret != NM_OK) {
        return ret;
    }
    if (number < pool.start || number > pool.end) {
        return refuse(NM_ERR_BAD_FORMAT, "\nreserved ip is not in range ip. ", pool.text, ", ip: ", ip);
    }
    return NM_OK;
}

int check_reservation(const Json::Value& entry, const Bounds& pool) {
    const std::string ip = nm::reservation_field(entry, "IP4_ADDR");
    const std::string mac = nm::reservation_field(entry, "MAC");
    if (nm::reservation_field(entry, "DEVICE_NAME").empty() || ip.empty() || mac.empty()) {
        const std::string shown = nm::write_styled_json(entry);
        return refuse(NM_ERR_EMPTY, "\ninformation is insufficient.\ncurrent reserved_ip info is:\n",
                      nm::LogLines{shown});
    }
    if (!is_valid_mac(mac.c_str())) {
        return refuse(NM_ERR_BAD_FORMAT, "\nmac address is invalid. mac: ", mac);
    }
    return check_reserved_address(ip, pool);
}

/// The values of the host blocks as whole texts: the checks above end at a NUL.
bool is_writable(const Json::Value& entry) {
    return nm::is_plain(nm::reservation_field(entry, "IP4_ADDR")) &&
           nm::is_plain(nm::reservation_field(entry, "MAC"));
}

}  // namespace

int DhcpService::check_dhcpserver_jsonformat() {
    if (lease_time.empty() || start_ip.empty() || end_ip.empty() || service_type.empty()) {
        return refuse(NM_ERR_EMPTY, "information is not sufficient.");
    }
    if (is_extreme(start_ip)) {
        return refuse(NM_ERR_BAD_FORMAT, "dhcp start ip address error. ip: " + start_ip);
    }
    if (is_extreme(end_ip)) {
        return refuse(NM_ERR_BAD_FORMAT, "dhcp end ip address error. ip: " + end_ip);
    }
    int ret = check_subnets();
    if (ret == NM_OK && !reserved_ip.empty()) {
        ret = check_reserved_ip_jsonformat();
        if (ret != NM_OK) {
            return refuse(ret, "check_reserved_ip_jsonformat failed.");
        }
    }
    return ret == NM_OK ? check_values() : ret;
}

int DhcpService::check_subnets() {
    std::string router_net;
    std::string start_net;
    std::string end_net;
    int ret = nm::subnet_of(option_router, prefix, router_net);
    if (ret == NM_OK) {
        ret = nm::subnet_of(start_ip, prefix, start_net);
    }
    if (ret == NM_OK) {
        ret = nm::subnet_of(end_ip, prefix, end_net);
    }
    if (ret != NM_OK) {
        return ret;
    }
    if (start_net != end_net) {
        return refuse(NM_ERR_BAD_FORMAT, start_ip + " subnet: " + start_net + ", " + end_ip +
                                             " subnet: " + end_net + " -> not the same subnet.");
    }
    if (router_net != start_net) {
        return refuse(NM_ERR_BAD_VALUE, option_router + " subnet: " + router_net + ", " + start_ip +
                                            " subnet: " + start_net +
                                            " -> option_router is not in the same subnet.");
    }
    return NM_OK;
}

/// What is left to keep a value from ending its statement in the daemon's file.
int DhcpService::check_values() {
    if (!nm::is_plain(ifname)) {
        return refuse(NM_ERR_BAD_FORMAT, "Bad interface name: " + ifname);
    }
    if (!is_lease_time(lease_time)) {
        return refuse(NM_ERR_BAD_FORMAT, "Bad lease time: " + lease_time);
    }
    const std::string addresses[] = {option_router, start_ip, end_ip};
    const auto* const bad = std::find_if_not(std::begin(addresses), std::end(addresses), is_whole_address);
    if (bad != std::end(addresses)) {
        return refuse(NM_ERR_BAD_IP, "Bad IP address: " + *bad);
    }
    const auto bad_server = std::find_if_not(dns_servers.begin(), dns_servers.end(), is_server);
    if (bad_server != dns_servers.end()) {
        return refuse(NM_ERR_BAD_IP, "Bad DNS server: " + *bad_server);
    }
    if (!std::all_of(reserved_ip.begin(), reserved_ip.end(), is_writable)) {
        return refuse(NM_ERR_BAD_FORMAT, "A reservation holds more than an address.");
    }
    return NM_OK;
}

int DhcpService::check_reserved_ip_jsonformat() {
    Bounds pool{0, 0, "start: " + start_ip + ", end: " + end_ip};
    int ret = to_number(start_ip, pool.start);
    if (ret == NM_OK) {
        ret = to_number(end_ip, pool.end);
    }
    for (auto entry = reserved_ip.begin(); ret == NM_OK && entry != reserved_ip.end(); ++entry) {
        ret = check_reservation(*entry, pool);
    }
    return ret;
}

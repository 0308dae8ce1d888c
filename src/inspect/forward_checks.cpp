// Port forwards: whether each can be loaded, and whether two take the same packets.
#include <strings.h>

#include <algorithm>
#include <array>

#include "config/port_lookup.h"
#include "config/service_ports.h"
#include "inspect/checks.h"
#include "inspect/formats.h"
#include "inspect/rule_words.h"
#include "utils/json_text.h"
#include "utils/shell_text.h"

namespace nm {

namespace {

constexpr const char* kFirewall = "firewall";
constexpr std::array<const char*, 2> kWanPorts{"TCP_WAN_PORT", "UDP_WAN_PORT"};

/// Numbers count as their text; what is neither is shown as JSON, which nothing takes.
std::string text_at(const Json::Value& forward, const char* key) {
    const Json::Value& member = json_member(forward, key);
    return member.isNull() ? "" : show_json(member);
}

struct ForwardCheck {
    const DocumentSet& documents;
    Findings& findings;

    void all(const Json::Value& forwards) const;
    void forward(const Place& place, const Json::Value& forward) const;
    void target(const Place& place, const Json::Value& forward) const;
    bool words(const Place& place, const Json::Value& forward) const;
    void ports(const Place& place, const Json::Value& forward) const;
    void host_ports(const Place& place, const Json::Value& forward) const;
    Json::Value with_ports(const Place& place, const Json::Value& forward) const;
    void sources(const Place& place, const Json::Value& forward) const;
};

void ForwardCheck::target(const Place& place, const Json::Value& forward) const {
    const std::string port = text_at(forward, "WAN_PORTNAME");
    const Json::Value& device = documents.root(kDevice);
    uint32_t address = 0;
    if (device.isObject() && get_ifname(device, port, 0).empty()) {
        findings.error(place / "WAN_PORTNAME",
                       port.empty() ? "WAN_PORTNAME is missing" : port + " is not a port",
                       "the name of a port of an uplink", kDevice);
    }
    if (!read_ip4(text_at(forward, "LAN_IP"), address)) {
        const Place host = place / "LAN_IP";
        findings.error(host, show_value(host, text_at(forward, "LAN_IP")) + " is not valid",
                       "the IPv4 address of a host");
        return;
    }
    const std::vector<StaticAddress> addresses = static_addresses(device);
    const bool is_reached =
        std::any_of(addresses.begin(), addresses.end(), [address](const StaticAddress& own) {
            const Network4 network = network_of(own.address, own.prefix);
            return address >= network.first && address <= network.last;
        });
    if (!is_reached && device.isObject()) {
        findings.warn(place / "LAN_IP", show_ip4(address) + " is in no network of a LAN",
                      "a host of a LAN, or one behind a static route", kDevice);
    }
}

/// The ports of the forward as they are loaded: those of a service stand in for both protocols.
Json::Value ForwardCheck::with_ports(const Place& place, const Json::Value& forward) const {
    const std::string name = text_at(forward, kForwardService);
    if (name.empty() || !text_at(forward, kWanPorts[0]).empty() || !text_at(forward, kWanPorts[1]).empty()) {
        return forward;
    }
    const std::vector<service_port> services = stored_services(documents);
    const service_port* const service = find_service(services, name);
    if (service == nullptr) {
        findings.error(place / kForwardService, name + " is not a service",
                       "the name of a service; nm_bin service list shows them", kRegistry);
        return forward;
    }
    Json::Value loaded = forward;
    std::string ports = service->ports;
    ports.erase(std::remove(ports.begin(), ports.end(), ' '), ports.end());
    std::replace(ports.begin(), ports.end(), '~', '-');
    loaded[kWanPorts[0]] = (protocol_mask(service->protocol) & kTcp) != 0 ? ports : "";
    loaded[kWanPorts[1]] = (protocol_mask(service->protocol) & kUdp) != 0 ? ports : "";
    return loaded;
}

/// What stands in a script has to be plain, whether it is used or not.
bool ForwardCheck::words(const Place& place, const Json::Value& forward) const {
    bool are_plain = true;
    for (const char* const key : {"TCP_WAN_PORT", "UDP_WAN_PORT", "LAN_PORT"}) {
        const std::string text = text_at(forward, key);
        if (!text.empty() && !is_plain(text)) {
            are_plain = false;
            findings.error(place / key, show_value(place / key, text) + " is not valid",
                           "ports: digits, commas and hyphens");
        }
    }
    return are_plain;
}

/// Whether the host's ports can stand behind those of the uplink, whose comma decides how both are matched.
bool is_matched(const std::string& host, const std::string& wan) {
    const bool is_list = wan.find(',') != std::string::npos;
    return wan.empty() || host.empty() || is_rule_ports(host, is_list);
}

bool has_no_ports(const Json::Value& forward) {
    const std::string protocol = json_string_or(forward, "PROTOCOL", "all");
    return strcasecmp(protocol.c_str(), "ah") == 0 || strcasecmp(protocol.c_str(), "esp") == 0;
}

/// A single port becomes part of the target, which takes none for a protocol without ports.
void ForwardCheck::host_ports(const Place& place, const Json::Value& forward) const {
    const std::string host = text_at(forward, "LAN_PORT");
    const bool are_matched = std::all_of(kWanPorts.begin(), kWanPorts.end(), [&](const char* key) {
        return is_matched(host, text_at(forward, key));
    });
    if (!are_matched) {
        findings.error(place / "LAN_PORT", show_value(place / "LAN_PORT", host) + " is not valid",
                       "one port of the host or a range; a list with commas behind lists only");
    } else if (has_no_ports(forward) && !host.empty() && host.find_first_of(",:-") == std::string::npos) {
        findings.error(place / "LAN_PORT", "the protocol has no ports", "no LAN_PORT, or another PROTOCOL");
    }
}

void ForwardCheck::ports(const Place& place, const Json::Value& forward) const {
    bool has_wan_ports = false;
    for (const char* const key : kWanPorts) {
        const std::string wan = text_at(forward, key);
        has_wan_ports = has_wan_ports || !wan.empty();
        if (!wan.empty() && !is_rule_ports(wan)) {
            findings.error(place / key, show_value(place / key, wan) + " is not valid",
                           "a port, a range A-B, or a list with commas of at most 15");
        }
    }
    host_ports(place, forward);
    if (!has_wan_ports && !has_no_ports(forward) && text_at(forward, kForwardService).empty()) {
        findings.warn(place, "the forward has no ports, and takes nothing",
                      "TCP_WAN_PORT, UDP_WAN_PORT or WAN_SERVICE, or PROTOCOL \"ah\" or \"esp\"");
    }
}

/// What the command refuses empties the set, and the forward admits nobody.
void ForwardCheck::sources(const Place& place, const Json::Value& forward) const {
    const Json::Value& list = json_member(forward, "ALLOWED_REMOTE_IPS");
    for (Json::ArrayIndex i = 0; list.isArray() && i < list.size(); ++i) {
        const Place source = place / "ALLOWED_REMOTE_IPS" / i;
        if (!list[i].isString() || !has_format("set-network", list[i].asString())) {
            findings.error(source, show_value(source, list[i]) + " is not valid",
                           "an IPv4 address or network, not of length 0");
        }
    }
}

void ForwardCheck::forward(const Place& place, const Json::Value& forward) const {
    const std::string type = text_at(forward, "TYPE");
    const bool is_known = type == "port_forwarding" || type == "1to1NAT";
    const std::string action = text_at(forward, "ACTION");
    if (!is_known) {
        findings.warn(place / "TYPE",
                      "the forward is disabled: " + show_value(place, type) + " is not a type",
                      "port_forwarding or 1to1NAT");
    }
    if (action != "ENABLE" && action != "DISABLE") {
        findings.warn(place / "ACTION",
                      "the forward is disabled: " + show_value(place, action) + " is not an action",
                      "ENABLE or DISABLE");
    }
    const Json::Value loaded = with_ports(place, forward);
    if (!is_known || action != "ENABLE") {
        return;
    }
    target(place, forward);
    sources(place, forward);
    if (words(place, loaded) && type == "port_forwarding") {
        ports(place, loaded);
    }
}

/// What both take of one port's packets: the member that says so, null for nothing.
const char* clash_of(const Json::Value& one, const Json::Value& other) {
    if (text_at(one, "WAN_PORTNAME") != text_at(other, "WAN_PORTNAME")) {
        return nullptr;
    }
    if (text_at(one, "TYPE") == "1to1NAT" || text_at(other, "TYPE") == "1to1NAT") {
        return "WAN_PORTNAME";
    }
    for (const char* const key : kWanPorts) {
        if (!text_at(one, key).empty() && text_at(one, key) == text_at(other, key)) {
            return key;
        }
    }
    return nullptr;
}

std::vector<PortRange> ranges_of(const Json::Value& forward, const char* key) {
    std::vector<PortRange> ranges;
    std::string text = text_at(forward, key);
    std::replace(text.begin(), text.end(), ':', '-');
    (void)parse_ports(text, ranges);  // names of ports and broken lists overlap nothing
    return ranges;
}

bool overlap(const std::vector<PortRange>& one, const std::vector<PortRange>& other) {
    return std::any_of(one.begin(), one.end(), [&other](const PortRange& a) {
        return std::any_of(other.begin(), other.end(),
                           [&a](const PortRange& b) { return a.first <= b.last && b.first <= a.last; });
    });
}

bool is_in_force(const Json::Value& forward) {
    return text_at(forward, "ACTION") == "ENABLE" && forward.isObject();
}

void check_pair(const Json::Value& forwards, Json::ArrayIndex earlier, Json::ArrayIndex later,
                Findings& findings) {
    const Place place = Place{kFirewall, "/PORT_FORWARDING"} / later;
    const Json::Value& one = forwards[earlier];
    const Json::Value& other = forwards[later];
    const std::string which = "forward " + std::to_string(earlier + 1);
    if (const char* const key = clash_of(one, other)) {
        findings.error(place / key, "the forward clashes with " + which + ", and the whole list is refused",
                       "other ports, or another uplink");
        return;
    }
    if (text_at(one, "WAN_PORTNAME") != text_at(other, "WAN_PORTNAME") || !is_in_force(one) ||
        !is_in_force(other)) {
        return;
    }
    for (const char* const key : kWanPorts) {
        if (overlap(ranges_of(one, key), ranges_of(other, key))) {
            findings.warn(place / key, which + " takes some of these ports first", "ports of its own");
        }
    }
}

void ForwardCheck::all(const Json::Value& forwards) const {
    const Place place{kFirewall, "/PORT_FORWARDING"};
    for (Json::ArrayIndex i = 0; i < forwards.size(); ++i) {
        if (!forwards[i].isObject()) {
            findings.warn(place / i, "this is not a forward", "an object");
            continue;
        }
        forward(place / i, forwards[i]);
        for (Json::ArrayIndex earlier = 0; earlier < i; ++earlier) {
            if (forwards[earlier].isObject()) {
                check_pair(forwards, earlier, i, findings);
            }
        }
    }
}

}  // namespace

void check_forwards(const DocumentSet& documents, Findings& findings) {
    constexpr Json::ArrayIndex kMost = 100;
    const Json::Value& forwards = json_member(documents.root(kFirewall), "PORT_FORWARDING");
    if (forwards.isArray() && forwards.size() <= kMost) {
        ForwardCheck{documents, findings}.all(forwards);
    }
}

}  // namespace nm

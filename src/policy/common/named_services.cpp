// Services in the place of ports.
#include "policy/common/named_services.h"

#include <array>

#include "log.h"
#include "result_codes.h"
#include "utils/json_text.h"

namespace nm {

namespace {

struct RuleEnd {
    const char* service;
    const char* ports;
};
constexpr std::array kEnds{RuleEnd{kSourceService, "SRC_PORT"}, RuleEnd{kDestinationService, "DST_PORT"}};

bool is_empty(const Json::Value& rule, const char* key) {
    const Json::Value& member = json_member(rule, key);
    return member.isNull() || (member.isString() && member.asString().empty());
}

/// What is not a text is no service's name, rather than none.
std::string name_in(const Json::Value& rule, const char* key, const char* ports) {
    return is_empty(rule, ports) && !is_empty(rule, key) ? show_json(rule[key]) : "";
}

/// Ports as rules list them: "137-139,445"; nothing for more than one match takes.
std::optional<std::string> rule_ports(const service_port& service) {
    std::vector<PortRange> ranges;
    if (!parse_ports(service.ports, ranges)) {
        NM_LOG(Error) << "Bad ports of the service " << service.service << ": " << service.ports;
        return std::nullopt;
    }
    std::string ports;
    for (const PortRange& range : ranges) {
        const bool single = range.first == range.last;
        ports += (ports.empty() ? "" : ",") + std::to_string(range.first);
        ports += single ? "" : "-" + std::to_string(range.last);
    }
    if (count_places(ranges) > kMostPlaces) {
        NM_LOG(Error) << "The service " << service.service << " has more ports than a rule takes";
        return std::nullopt;
    }
    return ports;
}

/// The protocols that the rule asks for by itself. One without ports (icmp) has none.
unsigned protocols_of(const Json::Value& rule) {
    const std::string protocol = json_scalar(json_member(rule, "PROTOCOL"));
    return protocol.empty() ? kTcp | kUdp : protocol_mask(protocol);
}

bool use_ports(const RuleEnd& end, const std::string& name, NamedServices& services, Json::Value& rule) {
    const std::optional<service_port> service = services.find(name);
    const std::optional<std::string> ports = service ? rule_ports(*service) : std::nullopt;
    if (!ports) {
        return false;
    }
    const unsigned asked = protocols_of(rule);
    const unsigned shared = asked & protocol_mask(service->protocol);
    if (shared == 0) {
        NM_LOG(Error) << "The service " << name << " (" << service->protocol
                      << ") has no ports of the protocol " << show_json(json_member(rule, "PROTOCOL"));
        return false;
    }
    rule[end.ports] = *ports;
    if (shared != asked) {
        rule["PROTOCOL"] = shared == kTcp ? "tcp" : "udp";
    }
    return true;
}

}  // namespace

std::optional<service_port> NamedServices::find(const std::string& name) {
    if (!services_) {
        services_.emplace();
        (void)read_service_ports(*services_);  // Logged; without it no service is known.
    }
    const service_port* const found = find_service(*services_, name);
    if (found == nullptr) {
        NM_LOG(Error) << "A rule names a service that is not known: " << name;
        return std::nullopt;
    }
    return *found;
}

bool names_service(const Json::Value& rule) {
    return !is_empty(rule, kSourceService) || !is_empty(rule, kDestinationService) ||
           !is_empty(rule, kForwardService);
}

std::optional<Json::Value> with_service_ports(const Json::Value& rule, NamedServices& services) {
    Json::Value plain = rule;
    for (const RuleEnd& end : kEnds) {
        const std::string name = name_in(rule, end.service, end.ports);
        if (!name.empty() && !use_ports(end, name, services, plain)) {
            return std::nullopt;
        }
    }
    return plain;
}

std::optional<Json::Value> with_forward_ports(const Json::Value& forward, NamedServices& services) {
    Json::Value plain = forward;
    const std::string name = name_in(forward, kForwardService, "TCP_WAN_PORT");
    if (name.empty() || !is_empty(forward, "UDP_WAN_PORT")) {
        return plain;
    }
    const std::optional<service_port> service = services.find(name);
    const std::optional<std::string> ports = service ? rule_ports(*service) : std::nullopt;
    if (!ports) {
        return std::nullopt;
    }
    const unsigned protocols = protocol_mask(service->protocol);
    for (const auto& [key, protocol] : {std::pair("TCP_WAN_PORT", kTcp), std::pair("UDP_WAN_PORT", kUdp)}) {
        if ((protocols & protocol) != 0) {
            plain[key] = *ports;
        }
    }
    return plain;
}

}  // namespace nm

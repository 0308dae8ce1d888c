// Rules, tables and routes of a packet.
#include "inspect/packet_routing.h"

#include <linux/rtnetlink.h>
#include <net/if.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <iterator>
#include <memory>
#include <utility>

#include "config/nmconfig.h"
#include "inspect/owners_view.h"
#include "inspect/read_command.h"
#include "inspect/rule_origin.h"
#include "kernel/link_state.h"
#include "kernel/route_table.h"
#include "policy/routes/static_route.h"
#include "utils/files.h"
#include "utils/json_text.h"

namespace nm {

namespace {

/// rtm_protocol of the routes to hosts that the relay has found (platform/relay6/).
constexpr uint32_t kRelayProtocol = 106;

/// By what the rule at a place of an interface's block selects.
struct SlotSelector {
    RuleSlot slot;
    const char* key;
};

constexpr SlotSelector kSlotSelectors[] = {
    {RuleSlot::Source, "src"},      {RuleSlot::Oif, "oif"},       {RuleSlot::Dnat, "fwmark"},
    {RuleSlot::LanToWan, "fwmark"}, {RuleSlot::RelayMain, "iif"}, {RuleSlot::RelayUplink, "iif"},
};

constexpr const char* kStranger = "not of this system";

/// A list of static routes, and who reads it.
struct StoredRoutes {
    const char* path;
    const char* list;
    int (*migrate)(Json::Value&, std::string);
    size_t (*parse)(Json::Value&, Json::Value&, Json::Value&, sroute**);
};

constexpr StoredRoutes kStoredRoutes[] = {
    {"/etc/networkmanagement/static_route.json", "STATIC_ROUTE", migrate_static_route, parse_route},
    {"/etc/networkmanagement/static_route6.json", "staticRoute6", migrate_static_route6, parse_route6},
};

/// The words of an interface's addressing.
struct AddressWords {
    const char* type;
    const char* address;
    const char* gateway;
};

constexpr AddressWords kWords4{"IP4_TYPE", "IP4_ADDR", "IP4_GW"};
constexpr AddressWords kWords6{"IP6_TYPE", "IP6_ADDR", "IP6_GW"};

std::string ip_command(const Flow& flow, const std::string& words) {
    return std::string("/sbin/ip -N -json ") + (flow.family() == AF_INET6 ? "-6 " : "-4 ") + words;
}

std::string text_of(const Json::Value& object, const char* key) {
    return json_scalar(json_member(object, key));
}

uint32_t number_of(const Json::Value& object, const char* key) {
    return static_cast<uint32_t>(strtoul(text_of(object, key).c_str(), nullptr, 0));
}

/// A network as the command shows it: "all", "default", or an address, and perhaps its prefix beside it.
bool is_within(const PacketAddress& address, const Json::Value& object, const char* key, const char* length) {
    const std::string text = text_of(object, key);
    PacketAddress network;
    if (text.empty() || text == "all" || text == "default") {
        return true;
    }
    const unsigned int whole = static_cast<unsigned int>(address.size() * 8);
    return parse_address(text, network) &&
           is_in_network(address, network, object.isMember(length) ? number_of(object, length) : whole);
}

bool is_marked(const Json::Value& rule, uint32_t mark) {
    const uint32_t mask = rule.isMember("fwmask") ? number_of(rule, "fwmask") : UINT32_MAX;
    return !rule.isMember("fwmark") || (mark & mask) == number_of(rule, "fwmark");
}

bool has_device(const Json::Value& rule, const RoutingQuestion& question) {
    const std::string in = question.device.empty() ? "lo" : question.device;
    return (!rule.isMember("iif") || text_of(rule, "iif") == in) && !rule.isMember("oif");
}

bool has_transport(const Json::Value& rule, const Flow& flow) {
    return (!rule.isMember("ipproto") || text_of(rule, "ipproto") == std::to_string(flow.protocol) ||
            text_of(rule, "ipproto") == protocol_name(flow.protocol)) &&
           (!rule.isMember("sport") || number_of(rule, "sport") == flow.source_port) &&
           (!rule.isMember("dport") || number_of(rule, "dport") == flow.destination_port);
}

/// A number of linux/rtnetlink.h by name; empty for a route to a neighbour or a gateway.
std::string type_of(const Json::Value& route) {
    static constexpr const char* kTypes[] = {"",          "",          "local",       "broadcast", "anycast",
                                             "multicast", "blackhole", "unreachable", "prohibit",  "throw"};
    const std::string type = text_of(route, "type");
    const size_t number = strtoul(type.c_str(), nullptr, 10);
    return number < std::size(kTypes) ? kTypes[number] : type;
}

uint32_t table_of(const Json::Value& route) {
    const std::string type = type_of(route);
    const bool is_own = type == "local" || type == "broadcast" || type == "anycast";
    return route.isMember("table") ? number_of(route, "table")
           : is_own                ? uint32_t{RT_TABLE_LOCAL}
                                   : uint32_t{RT_TABLE_MAIN};
}

unsigned int prefix_of(const Json::Value& route, const Flow& flow) {
    const std::string network = text_of(route, "dst");
    const size_t slash = network.find('/');
    if (network == "default") {
        return 0;
    }
    return slash == std::string::npos
               ? static_cast<unsigned int>(flow.destination.size() * 8)
               : static_cast<unsigned int>(strtoul(network.c_str() + slash + 1, nullptr, 10));
}

/// A rule that does not take what its table finds, as the network is too wide.
bool is_suppressed(const Json::Value& rule, unsigned int prefix) {
    return rule.isMember("suppress_prefixlen") && prefix <= number_of(rule, "suppress_prefixlen");
}

std::string prefixed(const Json::Value& object, const char* key, const char* length) {
    const std::string text = text_of(object, key);
    return object.isMember(length) ? text + "/" + text_of(object, length) : text;
}

/// As ip-rule(8) shows it.
std::string rule_text(const Json::Value& rule) {
    std::string text = text_of(rule, "priority") + ": " + (rule.isMember("not") ? "not " : "") + "from " +
                       prefixed(rule, "src", "srclen");
    text += rule.isMember("dst") ? " to " + prefixed(rule, "dst", "dstlen") : "";
    text += rule.isMember("tos") ? " tos " + text_of(rule, "tos") : "";
    if (rule.isMember("fwmark")) {
        text += " fwmark " + text_of(rule, "fwmark");
        text += rule.isMember("fwmask") ? "/" + text_of(rule, "fwmask") : "";
    }
    for (const char* const key : {"iif", "oif", "ipproto", "sport", "dport"}) {
        text += rule.isMember(key) ? std::string(" ") + key + " " + text_of(rule, key) : "";
    }
    text += rule.isMember("table") ? " lookup " + text_of(rule, "table") : "";
    text += rule.isMember("suppress_prefixlen")
                ? " suppress_prefixlength " + text_of(rule, "suppress_prefixlen")
                : "";
    return text;
}

std::string route_text(const Json::Value& route) {
    const std::string type = type_of(route);
    std::string text = (type.empty() ? "" : type + " ") + text_of(route, "dst");
    for (const auto& [key, word] :
         {std::pair("gateway", " via "), std::pair("dev", " dev "), std::pair("metric", " metric ")}) {
        text += route.isMember(key) ? word + text_of(route, key) : "";
    }
    const Json::Value& hops = json_member(route, "nexthops");
    for (const Json::Value& hop : hops) {
        text += " nexthop via " + text_of(hop, "gateway") + " dev " + text_of(hop, "dev");
    }
    return text;
}

std::string device_of(const Json::Value& route) {
    return text_of(route, "dev");
}

std::string device_with(uint32_t index) {
    char name[IF_NAMESIZE] = {};
    return if_indextoname(index, name) == nullptr ? "" : name;
}

/// The entry with the addressing of the device.
Json::Value source_of_device(const std::string& device, const Json::Value& document) {
    const std::string pointer = device.empty() ? "" : interface_pointer(document, device);
    return pointer.empty() ? rule_source(kStranger) : rule_source("documents", kDeviceInfoPath, pointer);
}

bool fits_table(RuleSlot slot, uint32_t table, uint32_t index) {
    return slot == RuleSlot::RelayMain     ? table == RT_TABLE_MAIN
           : slot == RuleSlot::RelayUplink ? table > kFirstUplinkTable
                                           : table == uplink_table(index);
}

/// Whether an uplink writes such a rule at this place of its block.
bool is_uplink_rule(const Json::Value& rule) {
    const uint32_t priority = number_of(rule, "priority");
    for (const SlotSelector& row : kSlotSelectors) {
        if (static_cast<uint32_t>(row.slot) == priority % kRuleBlock) {
            const std::string selector = text_of(rule, row.key);
            return !selector.empty() && selector != "all" &&
                   fits_table(row.slot, number_of(rule, "table"), priority / kRuleBlock);
        }
    }
    return false;
}

/// The kernel's own two take all packets.
bool is_kernel_rule(const std::string& text) {
    return text == "0: from all lookup 255" || text == "32766: from all lookup 254";
}

/// Whose it is by its priority, if it is a rule that this owner writes there.
Json::Value source_of_rule(const Json::Value& rule, const Flow& flow, const Json::Value& document) {
    const uint32_t priority = number_of(rule, "priority");
    const std::string family = flow.family() == AF_INET6 ? "6" : "4";
    const std::string text = rule_text(rule);
    std::string reason;
    const OwnersView view(all_claims(reason));
    const Claim* const claim = view.find({Resource::Priority, family, "", priority, ""});
    const std::string owner = claim == nullptr ? "" : claim->owner;
    if (owner == "uplinks" && is_uplink_rule(rule)) {
        return source_of_device(device_with(priority / kRuleBlock), document);
    }
    if (owner == "base rules" && !reason.empty()) {
        return rule_source("unknown");
    }
    const bool is_base = std::any_of(view.claims().begin(), view.claims().end(), [&](const Claim& each) {
        return each.resource == Resource::Priority && each.place == family && each.shape == text;
    });
    return rule_source(is_base ? "nm-base-rules" : is_kernel_rule(text) ? "kernel" : kStranger);
}

bool is_same_address(const std::string& text, const std::string& other) {
    PacketAddress one;
    PacketAddress two;
    return parse_address(text, one) && parse_address(other, two) && one == two;
}

/// Whether the address is in the network that the route leads to.
bool leads_to(const Json::Value& route, const PacketAddress& address, unsigned int prefix) {
    const std::string text = text_of(route, "dst");
    PacketAddress network;
    return parse_address(text.substr(0, text.find('/')), network) && is_in_network(address, network, prefix);
}

/// The stored addressing of the device, null where there is none.
const Json::Value& entry_of(const std::string& device, const Json::Value& document) {
    const std::string pointer = interface_pointer(document, device);
    const size_t key = pointer.rfind('/');
    return pointer.empty()
               ? Json::Value::nullSingleton()
               : json_member(json_member(document, pointer.substr(1, key - 1)), pointer.substr(key + 1));
}

const AddressWords& address_words(const Flow& flow) {
    return flow.family() == AF_INET6 ? kWords6 : kWords4;
}

/// The gateway that the entry has for the device; that of the route where a lease brings it.
std::string gateway_of(const std::string& device, const Json::Value& route, const Flow& flow,
                       const Json::Value& document) {
    const Json::Value& entry = entry_of(device, document);
    return text_of(entry, address_words(flow).type) == "STATIC" ? text_of(entry, address_words(flow).gateway)
                                                                : text_of(route, "gateway");
}

struct FreeRoutes {
    void operator()(sroute* routes) const { free(routes); }
};

/// The kernel gives an IPv6 route without a metric this one (IP6_RT_PRIO_USER).
uint32_t metric_in_force(const sroute& stored) {
    constexpr uint32_t kUserMetric6 = 1024;
    return stored.metric == 0 && stored.family == AF_INET6 ? kUserMetric6 : stored.metric;
}

PacketAddress raw_address(unsigned char family, const unsigned char* raw) {
    PacketAddress address;
    address.family = family;
    std::copy_n(raw, address.size(), address.bytes.begin());
    return address;
}

bool is_route_of(const sroute& stored, const Json::Value& route, const Flow& flow) {
    PacketAddress gateway;
    const bool has_gateway = parse_address(text_of(route, "gateway"), gateway);
    return stored.family == flow.family() && stored.prefix == prefix_of(route, flow) &&
           leads_to(route, raw_address(stored.family, stored.dst), stored.prefix) &&
           metric_in_force(stored) == number_of(route, "metric") &&
           (stored.oif == 0 || device_with(stored.oif) == device_of(route)) && stored.has_gw == has_gateway &&
           (!has_gateway || raw_address(stored.family, stored.gw) == gateway);
}

/// Whether this entry, read as a list of its own, gives the route. One that cannot be read gives none.
bool gives_route(const StoredRoutes& row, const Json::Value& entry, const Json::Value& route,
                 const Flow& flow, Json::Value document) {
    Json::Value list;
    list.append(entry);
    Json::Value gateways;
    gateways[device_of(route)][flow.family() == AF_INET6 ? "ip6_gw" : "ip4_gw"] =
        gateway_of(device_of(route), route, flow, document);
    try {
        sroute* parsed = nullptr;
        const size_t count = row.parse(list, document, gateways, &parsed);
        const std::unique_ptr<sroute, FreeRoutes> routes(parsed);
        return count == 1 && is_route_of(*parsed, route, flow);
    } catch (const std::exception&) {
        return false;
    }
}

/// The entry of the lists of static routes that gives this route.
Json::Value source_of_static_route(const Json::Value& route, const Flow& flow, const Json::Value& document) {
    for (const StoredRoutes& row : kStoredRoutes) {
        Json::Value stored;
        if (json_file_to_mem(row.path, stored) < 0 || row.migrate(stored, row.path) < 0) {
            continue;
        }
        const Json::Value& list = json_member(stored, row.list);
        for (Json::ArrayIndex i = 0; list.isArray() && i < list.size(); ++i) {
            if (gives_route(row, list[i], route, flow, document)) {
                return rule_source("documents", row.path,
                                   std::string("/") + row.list + "/" + std::to_string(i));
            }
        }
    }
    return rule_source(kStranger);
}

/// Whether the addressing of the device makes this route of an uplink: the one to its gateway, or to its
/// network. What a lease says stands in no document.
bool is_of_addressing(const Json::Value& route, const Flow& flow, const Json::Value& entry) {
    const bool is_default = text_of(route, "dst") == "default";
    if (is_default != route.isMember("gateway") || !type_of(route).empty()) {
        return false;
    }
    if (text_of(entry, address_words(flow).type) != "STATIC") {
        return true;
    }
    PacketAddress address;
    return is_default
               ? is_same_address(text_of(route, "gateway"), text_of(entry, address_words(flow).gateway))
               : parse_address(text_of(entry, address_words(flow).address), address) &&
                     leads_to(route, address, prefix_of(route, flow));
}

/// Of a route in the table of this device, or of all uplinks. The default route in the table of a LAN with a
/// lent prefix leads to the uplink.
Json::Value source_of_uplink_route(const Json::Value& route, const Flow& flow, const std::string& owner,
                                   const Json::Value& document) {
    const bool is_own = get_pure_ifname(device_of(route)) == get_pure_ifname(owner);
    const bool is_lent = !is_own && flow.family() == AF_INET6 && text_of(route, "dst") == "default";
    const std::string device = is_lent ? owner : device_of(route);
    return (is_own || is_lent) && is_of_addressing(route, flow, entry_of(device, document))
               ? source_of_device(device, document)
               : rule_source(kStranger);
}

/// Whose route it is, if it is one that this owner makes in its table.
Json::Value source_of_route(const Json::Value& route, const Flow& flow, const Json::Value& document) {
    const uint32_t table = table_of(route);
    const uint32_t protocol = number_of(route, "protocol");
    if (table == RT_TABLE_MAIN || table == RT_TABLE_LOCAL) {
        const bool is_network = protocol == RTPROT_KERNEL || protocol == kRelayProtocol;
        return is_network && !route.isMember("gateway") ? source_of_device(device_of(route), document)
                                                        : rule_source(kStranger);
    }
    if (protocol != RTPROT_STATIC) {
        return rule_source(kStranger);
    }
    if (table == kFirstStaticTable || table == kSecondStaticTable) {
        return source_of_static_route(route, flow, document);
    }
    const bool is_shared = table == kDefaultRoutesTable;
    return is_shared || table > kFirstUplinkTable
               ? source_of_uplink_route(route, flow,
                                        is_shared ? device_of(route) : device_with(table - kFirstUplinkTable),
                                        document)
               : rule_source(kStranger);
}

/// The first rule that leads to this table and takes what it finds there: what the kernel has found is the
/// same by any later one.
const Json::Value& deciding_rule(const Json::Value& rules, const RoutingQuestion& question,
                                 const Json::Value& route) {
    const unsigned int prefix = prefix_of(route, question.flow);
    for (const Json::Value& rule : rules) {
        if (number_of(rule, "table") == table_of(route) && is_rule_for(rule, question) &&
            !is_suppressed(rule, prefix)) {
            return rule;
        }
    }
    return Json::Value::nullSingleton();
}

/// Whether the kernel takes the protocol in a question; rules can ask for no other.
bool can_be_asked(const Flow& flow) {
    const int icmp = flow.family() == AF_INET6 ? int{IPPROTO_ICMPV6} : int{IPPROTO_ICMP};
    return flow.has_ports() || flow.protocol == icmp;
}

std::string route_question(const RoutingQuestion& question) {
    const Flow& flow = question.flow;
    std::string words = "route get fibmatch " + flow.destination.text() + " from " + flow.source.text();
    words += question.device.empty() ? "" : " iif " + question.device;
    words += " mark " + std::to_string(question.mark);
    words += can_be_asked(flow) ? " ipproto " + std::to_string(flow.protocol) : "";
    if (flow.has_ports()) {
        words +=
            " sport " + std::to_string(flow.source_port) + " dport " + std::to_string(flow.destination_port);
    }
    return ip_command(flow, words);
}

}  // namespace

bool is_rule_for(const Json::Value& rule, const RoutingQuestion& question) {
    const bool fits = is_within(question.flow.source, rule, "src", "srclen") &&
                      is_within(question.flow.destination, rule, "dst", "dstlen") &&
                      is_marked(rule, question.mark) && has_device(rule, question) &&
                      has_transport(rule, question.flow);
    return fits != rule.isMember("not");
}

Json::Value ask_routing(const RoutingQuestion& question, const Json::Value& device_document) {
    Json::Value answer;
    Json::Value routes;
    Json::Value rules;
    const CommandText found = read_command(route_question(question));
    if (!found.reason.empty() || !parse_json(found.text, routes) || !routes.isArray() || routes.empty()) {
        answer["refusal"] = found.reason.empty() ? "no route" : found.reason;
        return answer;
    }
    const Json::Value& route = routes[0];
    answer["table"] = std::to_string(table_of(route));
    answer["route"] = route_text(route);
    answer["device"] = device_of(route);
    answer["source"] = source_of_route(route, question.flow, device_document);
    (void)parse_json(read_command(ip_command(question.flow, "rule show")).text, rules);
    const Json::Value& rule = deciding_rule(rules, question, route);
    if (!rule.isNull()) {
        answer["rule"]["priority"] = number_of(rule, "priority");
        answer["rule"]["text"] = rule_text(rule);
        answer["rule"]["source"] = source_of_rule(rule, question.flow, device_document);
    }
    return answer;
}

}  // namespace nm

// Rules, tables and routes of a packet.
#include "inspect/packet_routing.h"

#include <net/if.h>

#include <cstdlib>
#include <iterator>
#include <utility>

#include "config/nmconfig.h"
#include "inspect/owners_view.h"
#include "inspect/read_command.h"
#include "inspect/rule_origin.h"
#include "kernel/route_table.h"
#include "utils/files.h"
#include "utils/json_text.h"

namespace nm {

namespace {

constexpr uint32_t kMainTable = 254;
constexpr uint32_t kLocalTable = 255;

/// A list of static routes, and the words of its entries.
struct StoredRoutes {
    int family;
    const char* path;
    const char* list;
    const char* address;
    const char* prefix;
};

constexpr StoredRoutes kStoredRoutes[] = {
    {AF_INET, "/etc/networkmanagement/static_route.json", "STATIC_ROUTE", "IP", "NETMASK"},
    {AF_INET6, "/etc/networkmanagement/static_route6.json", "staticRoute6", "destination", "prefixLength"},
};

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
    return route.isMember("table") ? number_of(route, "table") : is_own ? kLocalTable : kMainTable;
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

/// The uplink, or the LAN with a lent prefix, whose block of priorities or table it is.
Json::Value source_of_index(uint32_t index, const Json::Value& document) {
    char name[IF_NAMESIZE] = {};
    const std::string device = if_indextoname(index, name) == nullptr ? "" : name;
    const std::string pointer = device.empty() ? "" : interface_pointer(document, device);
    return pointer.empty() ? rule_source("not of this system")
                           : rule_source("documents", kDeviceInfoPath, pointer);
}

/// Whose priority it is by design.
Json::Value source_of_rule(const Json::Value& rule, const Flow& flow, const Json::Value& document) {
    static const OwnersView kView(library_claims());
    Present priority{Resource::Priority, flow.family() == AF_INET6 ? "6" : "4", "",
                     number_of(rule, "priority"), ""};
    const Claim* const claim = kView.find(priority);
    const std::string owner = claim == nullptr ? "" : claim->owner;
    if (owner == "uplinks") {
        return source_of_index(priority.number / kRuleBlock, document);
    }
    return rule_source(owner == "base rules" ? "nm-base-rules"
                       : owner.empty()       ? "not of this system"
                                             : owner);
}

/// The entry of the list of static routes that has this network.
Json::Value source_of_static_route(const Json::Value& route, const Flow& flow) {
    for (const StoredRoutes& row : kStoredRoutes) {
        Json::Value document;
        if (row.family != flow.family() || json_file_to_mem(row.path, document) < 0) {
            continue;
        }
        const Json::Value& list = json_member(document, row.list);
        for (Json::ArrayIndex i = 0; list.isArray() && i < list.size(); ++i) {
            PacketAddress network;
            PacketAddress found;
            const std::string text = text_of(route, "dst");
            const unsigned int prefix = number_of(list[i], row.prefix);
            if (parse_address(text_of(list[i], row.address), network) &&
                parse_address(text.substr(0, text.find('/')), found) && prefix == prefix_of(route, flow) &&
                is_in_network(network, found, prefix)) {
                return rule_source("documents", row.path,
                                   std::string("/") + row.list + "/" + std::to_string(i));
            }
        }
    }
    return rule_source("not of this system");
}

std::string device_of(const Json::Value& route) {
    return text_of(route, "dev");
}

Json::Value source_of_route(const Json::Value& route, const Flow& flow, const Json::Value& document) {
    const uint32_t table = table_of(route);
    if (table == kFirstStaticTable || table == kSecondStaticTable) {
        return source_of_static_route(route, flow);
    }
    if (table > kFirstUplinkTable) {
        return source_of_index(table - kFirstUplinkTable, document);
    }
    const std::string pointer = interface_pointer(document, device_of(route));
    return pointer.empty() ? rule_source("not of this system")
                           : rule_source("documents", kDeviceInfoPath, pointer);
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

std::string route_question(const RoutingQuestion& question) {
    const Flow& flow = question.flow;
    std::string words = "route get fibmatch " + flow.destination.text() + " from " + flow.source.text();
    words += question.device.empty() ? "" : " iif " + question.device;
    words += " mark " + std::to_string(question.mark) + " ipproto " + std::to_string(flow.protocol);
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

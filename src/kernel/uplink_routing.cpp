// Policy routing of an uplink: texts and indexes become tables, priorities and raw addresses.
#include "kernel/uplink_routing.h"

#include <arpa/inet.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <initializer_list>
#include <string>

#include "kernel/link.h"
#include "kernel/link_state.h"
#include "kernel/policy_netlink.h"
#include "kernel/route.h"
#include "kernel/rule.h"
#include "log.h"
#include "result_codes.h"
#include "utils/device_facts.h"

namespace {

/// An address given as text, or none.
class TextAddress {
public:
    explicit TextAddress(const char* text) : text_(text), present_(text != nullptr && *text != '\0') {}

    bool present() const { return present_; }

    /// Reads the text, if there is one.
    bool read(unsigned char family) { return !present_ || inet_pton(family, text_, bytes_.data()) == 1; }

    /// The same. `label` tells the log which argument it is.
    int parse(unsigned char family, const char* label) {
        if (read(family)) {
            return NM_OK;
        }
        NM_LOG(Error) << "The value of " << (family == AF_INET ? "ipv4" : "ipv6") << " address is wrong. "
                      << label << text_;
        return NM_ERR_BAD_IP;
    }

    void* raw() { return present_ ? bytes_.data() : nullptr; }

    /// The bytes, null for zeroes. That IPv6 is judged by its first byte is what callers rely on: no uplink
    /// has such an address, and the peers write "::" and "::1" for "none".
    void* raw_unless_zero(unsigned char family) {
        const auto end = bytes_.begin() + (family == AF_INET ? sizeof(in_addr) : 1);
        return std::any_of(bytes_.begin(), end, [](uint8_t byte) { return byte != 0; }) ? raw() : nullptr;
    }

private:
    const char* text_;
    bool present_;
    std::array<uint8_t, sizeof(in6_addr)> bytes_{};
};

/// A device and the numbers that are in force for it.
struct Uplink {
    std::string ifname;
    RT_ID table = 0;
    unsigned int rule_base = 0;
};

int find_name(unsigned int ifindex, std::string& ifname) {
    std::array<char, IFNAMSIZ> name{};
    if (if_indextoname(ifindex, name.data()) == nullptr) {
        NM_LOG(Error) << "Error: Can't get ifname for ifindex " << ifindex;
        return NM_ERR_NO_IFACE;
    }
    ifname = name.data();
    return NM_OK;
}

/// Stores the numbers of `owner`, the index that counts for the device.
template <class Label>
int number_uplink(unsigned int owner, const Label& label, Uplink& uplink) {
    uplink.table = nm::uplink_table(owner);
    uplink.rule_base = nm::uplink_rule_base(owner);
    if (uplink.table != 0) {
        return NM_OK;
    }
    NM_LOG(Error) << "Error: ifindex has exceeded allowed range for RT_ID! " << label;
    return NM_ERR_BAD_FORMAT;
}

/// The numbers of a device, which a VLAN device has from its parent.
int find_uplink(unsigned int ifindex, Uplink& uplink) {
    const int ret = find_name(ifindex, uplink.ifname);
    if (ret != NM_OK) {
        return ret;
    }
    const std::string owner = get_pure_ifname(uplink.ifname);
    const int owner_index = get_iface_index(owner.c_str());
    if (owner_index == 0) {
        NM_LOG(Error) << "Error: Can't get ifindex for ifname " << owner;
        return NM_ERR_NO_IFACE;
    }
    return number_uplink(static_cast<unsigned int>(owner_index), owner, uplink);
}

/// The rules of an uplink's block, in their order. A name without a port number is not chosen by marks.
std::vector<nm::NewRule> rule_block(unsigned char family, const void* addr, unsigned char prefix, int mark,
                                    const char* name, unsigned int pref_base) {
    using nm::RuleSlot;
    const auto priority = [pref_base](RuleSlot slot) { return nm::rule_priority(pref_base, slot); };
    const int port = get_port_num(name);
    std::vector<nm::NewRule> rules{nm::source_rule(priority(RuleSlot::Source), family, addr, prefix, mark),
                                   nm::oif_rule(priority(RuleSlot::Oif), family, name, mark)};
    if (port != 0 && mark != 0) {
        rules.push_back(nm::dnat_rule(priority(RuleSlot::Dnat), family, port));
    }
    if (port != 0) {
        rules.push_back(nm::lan_to_wan_rule(priority(RuleSlot::LanToWan), family, port));
    }
    return rules;
}

/// The routes of an uplink's table, in their order.
std::vector<nm::NewRoute> source_routes(unsigned int ifindex, unsigned char family, const void* addr,
                                        unsigned char prefix, const void* gw, unsigned int metric) {
    std::vector<nm::NewRoute> routes;
    if (gw != nullptr) {
        routes.push_back({family, nullptr, 0, gw, ifindex, metric});
    }
    routes.push_back({family, addr, prefix, nullptr, ifindex, metric});
    return routes;
}

/// The routes of a table whose traffic leaves by another interface, in their order.
std::vector<nm::NewRoute> downlink_routes(unsigned int ifindex, const void* addr, unsigned char prefix,
                                          unsigned int oif_ifindex, const void* gw) {
    std::vector<nm::NewRoute> routes{{AF_INET6, addr, prefix, nullptr, ifindex, 0, RT_SCOPE_LINK}};
    if (gw != nullptr) {
        routes.push_back({AF_INET6, nullptr, 0, gw, oif_ifindex, 0});
    }
    return routes;
}

/// The first result that is not a success.
int first_failure(std::initializer_list<int> results) {
    const auto* failure = std::find_if(results.begin(), results.end(), [](int ret) { return ret != NM_OK; });
    return failure != results.end() ? *failure : NM_OK;
}

int change_rule(unsigned int ifindex, unsigned char family, const char* ip, uint8_t act, int mark,
                const char* ifname) {
    TextAddress address(ip);
    if (ifindex == 0 || (act == RTM_NEWRULE && !address.present())) {
        NM_LOG(Error) << "NO input ifindex or from_ip address.";
        return NM_ERR_NULL_ARG;
    }
    if (act != RTM_NEWRULE && act != RTM_DELRULE) {
        NM_LOG(Error) << "The value of ip rule action is wrong. act: " << static_cast<int>(act);
        return NM_ERR_BAD_FORMAT;
    }
    Uplink uplink;
    int ret = address.parse(family, "ip_addr: ");
    if (ret != NM_OK || (ret = find_uplink(ifindex, uplink)) != NM_OK) {
        return ret;
    }
    const int add = act == RTM_NEWRULE ? 1 : 0;
    return set_source_rule(ifindex, family, address.raw_unless_zero(family), 0, add, mark, ifname,
                           uplink.table, uplink.rule_base);
}

int change_route(unsigned int ifindex, unsigned char family, const char* ip, uint8_t prefix, const char* gw,
                 unsigned int metric, uint8_t act) {
    TextAddress address(ip);
    TextAddress gateway(gw);
    if (ifindex == 0 || (act == RTM_NEWROUTE && (!address.present() || prefix == 0))) {
        NM_LOG(Error) << "NO input ifindex or ip_addr or ip_prefix";
        return NM_ERR_NULL_ARG;
    }
    if (act != RTM_NEWROUTE && act != RTM_DELROUTE) {
        NM_LOG(Error) << "The value of ip route action is wrong. act: " << static_cast<int>(act);
        return NM_ERR_BAD_FORMAT;
    }
    int ret = address.parse(family, "ip_addr: ");
    if (ret != NM_OK || (ret = gateway.parse(family, "def_gw : ")) != NM_OK) {
        return ret;
    }
    if (prefix > (family == AF_INET ? 32 : 128)) {
        NM_LOG(Error) << "Bad prefix.";
        return NM_ERR_BAD_PREFIX;
    }
    Uplink uplink;
    ret = find_uplink(ifindex, uplink);
    if (ret != NM_OK) {
        return ret;
    }
    const int add = act == RTM_NEWROUTE ? 1 : 0;
    ret = set_source_route(ifindex, family, address.raw_unless_zero(family), prefix,
                           gateway.raw_unless_zero(family), metric, add, uplink.table);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Set ip source route fail. Ifindex : " << ifindex;
    }
    return ret;
}

/// What is asked for a LAN-side prefix.
struct Downlink {
    unsigned int ifindex;
    unsigned int oif_ifindex;
    TextAddress address;
    unsigned int prefix;
    TextAddress gateway;
    int mark;
    Uplink numbers;
};

/// The checks of a LAN-side prefix, all before anything is changed.
int check_downlink(Downlink& downlink, unsigned char act) {
    if (downlink.ifindex == 0 || (act == 1 && (!downlink.address.present() || downlink.prefix == 0))) {
        NM_LOG(Error) << "NO input ifindex or ip6_addr or ip6_prefix";
        return NM_ERR_NULL_ARG;
    }
    if (act > 1) {
        NM_LOG(Error) << "The value of ip route action is wrong. act: " << static_cast<int>(act);
        return NM_ERR_BAD_FORMAT;
    }
    int ret = downlink.address.parse(AF_INET6, "ip6_addr: ");
    if (ret != NM_OK || (ret = downlink.gateway.parse(AF_INET6, "ip6_gw : ")) != NM_OK) {
        return ret;
    }
    if (downlink.prefix > 128) {
        NM_LOG(Error) << "Bad prefix.";
        return NM_ERR_BAD_PREFIX;
    }
    ret = find_name(downlink.ifindex, downlink.numbers.ifname);
    return ret != NM_OK ? ret : number_uplink(downlink.ifindex, downlink.ifindex, downlink.numbers);
}

/// The rules and routes of a LAN-side prefix are there, and nothing else that an add would wipe.
bool is_in_force(Downlink& downlink) {
    const Uplink& numbers = downlink.numbers;
    Uplink owner;
    const auto length = static_cast<unsigned char>(downlink.prefix);
    void* const address = downlink.address.raw();
    return find_uplink(downlink.ifindex, owner) == NM_OK &&
           nm::has_only_rules(numbers.table, AF_INET6,
                              rule_block(AF_INET6, address, length, downlink.mark, numbers.ifname.c_str(),
                                         numbers.rule_base)) &&
           nm::has_only_routes(numbers.table, AF_INET6,
                               downlink_routes(downlink.ifindex, address, length, downlink.oif_ifindex,
                                               downlink.gateway.raw())) &&
           (owner.table == numbers.table || (nm::has_only_rules(owner.table, AF_INET6, {}) &&
                                             nm::has_only_routes(owner.table, AF_INET6, {})));
}

int change_downlink(Downlink downlink, unsigned char act) {
    const int ret = check_downlink(downlink, act);
    if (ret != NM_OK) {
        return ret;
    }
    const Uplink& numbers = downlink.numbers;
    const unsigned int ifindex = downlink.ifindex;
    const char* ifname = numbers.ifname.c_str();
    const auto length = static_cast<unsigned char>(downlink.prefix);
    const bool add = act == 1;
    (void)delete_routerule(ifname, static_cast<int>(ifindex), AF_INET6);  // mostly there is nothing to wipe
    if (get_pure_ifname(numbers.ifname) != numbers.ifname) {
        // That was the parent's table. A VLAN device's own one has to be wiped as well.
        (void)flush_route_table(AF_INET6, numbers.table);
        (void)del_rules_by_rt(AF_INET6, numbers.table);
    }

    const auto set_rules = [&] {
        const int rules = set_source_rule(ifindex, AF_INET6, downlink.address.raw(), length, add ? 1 : 0,
                                          downlink.mark, ifname, numbers.table, numbers.rule_base);
        if (rules != NM_OK) {
            NM_LOG(Error) << (add ? "Failed to setup IPv6 rule!" : "Failed to delete IPv6 rule!");
        }
        return rules;
    };
    const auto set_routes = [&] {
        const int routes = add ? set_ip6_oif_route(ifindex, downlink.address.raw(), length,
                                                   downlink.oif_ifindex, downlink.gateway.raw(), 1)
                               : set_ip6_oif_route(ifindex, nullptr, 0, 0, nullptr, 0);
        if (routes != NM_OK) {
            NM_LOG(Error) << (add ? "Failed to setup IPv6 radvd route!"
                                  : "Failed to delete IPv6 radvd route!");
        }
        return routes;
    };
    // Braced lists are evaluated from left to right: rules before routes, and the other way round to undo.
    return add ? first_failure({set_rules(), set_routes()}) : first_failure({set_routes(), set_rules()});
}

}  // namespace

int set_source_rule(unsigned int ifindex, unsigned char family, void* addr, unsigned char prefix, int add,
                    int mark, const char* ifname, RT_ID table, unsigned int pref_base) {
    std::array<char, IFNAMSIZ> own_name{};
    const bool named = ifname != nullptr && *ifname != '\0';
    const char* name = named ? ifname : if_indextoname(ifindex, own_name.data());
    if (name == nullptr) {
        fprintf(stderr, "Error: Can't get ifname for ifindex %u\n", ifindex);
        return NM_ERR_NO_IFACE;
    }
    if (add != 1) {
        return del_rules_by_rt(family, table);
    }
    const unsigned char version = nm::family_version(family);
    int first = NM_OK;
    for (const nm::NewRule& rule : rule_block(family, addr, prefix, mark, name, pref_base)) {
        const int ret = nm::set_rule(rule, table);
        if (ret != NM_OK) {
            const int port = rule.mark != 0 ? get_port_num(name) : 0;
            const std::string by_mark = port != 0 ? ", Port: " + std::to_string(port) : "";
            fprintf(stderr, "Set %s rule fail. Ifindex: %u%s (IPv%hhu)\n", rule.kind, ifindex,
                    by_mark.c_str(), version);
        }
        first = first_failure({first, ret});
    }
    return first;
}

int set_source_route(unsigned int ifindex, unsigned char family, void* addr, unsigned char prefix, void* gw,
                     unsigned int metric, int add, RT_ID table) {
    const unsigned int bits = nm::family_bits(family);
    if (ifindex == 0 || bits == 0 || prefix > bits) {
        fprintf(stderr, "Error: Invalid family %hhu for ifindex %u\n", family, ifindex);
        return NM_ERR_BAD_FORMAT;
    }
    if (add == 0) {
        return flush_route_table(family, table);
    }
    if (addr == nullptr) {
        NM_LOG(Error) << "Error: Add source route but no addr for ifindex " << ifindex;
        return NM_ERR_NULL_ARG;
    }
    const unsigned char version = nm::family_version(family);
    if (gw == nullptr) {
        fprintf(stderr, "Notice: Skip add default source route for ifindex: %u (IPv%hhu)\n", ifindex,
                version);
    }
    int last = NM_OK;
    for (const nm::NewRoute& route : source_routes(ifindex, family, addr, prefix, gw, metric)) {
        const int ret = nm::add_route(table, route);
        if (ret != NM_OK) {
            fprintf(stderr, "Error : Set %s source route fail. Ifindex: %u (IPv%hhu)\n",
                    route.dst == nullptr ? "default" : "WAN static", ifindex, version);
        }
        last = first_failure({ret, last});  // that of the network counts before that of the gateway
    }
    return last;
}

int set_ip6_oif_route(unsigned int ifindex, void* addr, unsigned char prefix, unsigned int oif_ifindex,
                      void* gw, int add) {
    const RT_ID table = nm::uplink_table(ifindex);
    if (table == 0) {
        fprintf(stderr, "Error: ifindex has exceeded allowed range for RT_ID! %u\n", ifindex);
        return NM_ERR_BAD_FORMAT;
    }
    // A table that is given up must not get a route again.
    if (add == 0) {
        return flush_route_table(AF_INET6, table);
    }
    int first = NM_OK;
    for (const nm::NewRoute& route : downlink_routes(ifindex, addr, prefix, oif_ifindex, gw)) {
        const int ret = nm::add_route(table, route);
        if (ret != NM_OK) {
            fprintf(stderr, "Set ip6 %s scope route fail. Ifindex: %u\n",
                    route.scope == RT_SCOPE_LINK ? "link" : "universe", ifindex);
        }
        first = first_failure({first, ret});
    }
    return first;
}

int set_ip_rule(unsigned int ifindex, unsigned char family, const char* ip, uint8_t act, int mark,
                const char* ifname) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(change_rule(ifindex, family, ip, act, mark, ifname));
}

int set_ip_route(unsigned int ifindex, unsigned char family, const char* ip, uint8_t prefix, const char* gw,
                 unsigned int metric, uint8_t act) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(change_route(ifindex, family, ip, prefix, gw, metric, act));
}

int set_ip4_rule(unsigned int ifindex, const char* ip, unsigned char act, int mark) {
    return set_ip_rule(ifindex, AF_INET, ip, act, mark, nullptr);
}

int set_ip6_rule(unsigned int ifindex, const char* ip, unsigned char act, int mark, const char* ifname) {
    return set_ip_rule(ifindex, AF_INET6, ip, act, mark, ifname);
}

int set_ip4_route(unsigned int ifindex, const char* ip, unsigned char prefix, const char* gw,
                  unsigned char act) {
    return set_ip_route(ifindex, AF_INET, ip, prefix, gw, 0, act);
}

int set_ip6_route(unsigned int ifindex, const char* ip, unsigned char prefix, const char* gw,
                  unsigned int metric, unsigned char act) {
    return set_ip_route(ifindex, AF_INET6, ip, prefix, gw, metric, act);
}

int delete_routerule(const char* ifname, int ifindex, unsigned char family) {
    NM_LOG(Debug) << "Enter";
    const auto index = static_cast<unsigned int>(ifindex);
    const char* label = ifname != nullptr ? ifname : "";
    if (set_ip_route(index, family, nullptr, 0, nullptr, 0, RTM_DELROUTE) != NM_OK) {
        NM_LOG(Error) << "Delete IP gateway fail. Interface : " << label;
    }
    const int ret = set_ip_rule(index, family, nullptr, RTM_DELRULE, 0, ifname);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Delete IP rule fail. Interface : " << label;
    }
    return NM_EXIT(ret);
}

int nm::delete_session_routerule(const std::string& ifname, int ifindex, unsigned char family) {
    const std::string owner = get_pure_ifname(ifname);
    const int owner_index = owner == ifname ? ifindex : get_iface_index(owner.c_str());
    const RT_ID table = uplink_table(static_cast<unsigned int>(owner_index));
    if (owner_index == 0 || table == 0) {
        NM_LOG(Error) << "Delete IP rule fail. Interface : " << ifname;
        return NM_ERR_BAD_FORMAT;
    }
    (void)flush_route_table(family, table);  // the rules alone count: without them it is not searched
    return del_rules_by_rt(family, table);
}

int set_ip6_routerule_by_oifindex(unsigned int ifindex, unsigned int oif_ifindex, const char* ip,
                                  unsigned int prefix, const char* gw, unsigned char act, int mark) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(
        change_downlink({ifindex, oif_ifindex, TextAddress(ip), prefix, TextAddress(gw), mark, {}}, act));
}

bool nm::is_source_routed(unsigned char family, const SourceRouting& wanted) {
    TextAddress address(wanted.ip);
    TextAddress gateway(wanted.gw);
    Uplink uplink;
    const bool is_valid = wanted.ifindex != 0 && wanted.prefix != 0 && wanted.prefix <= family_bits(family) &&
                          address.read(family) && gateway.read(family);
    const void* const addr = address.raw_unless_zero(family);
    if (!is_valid || addr == nullptr || find_uplink(wanted.ifindex, uplink) != NM_OK) {
        return false;
    }
    const char* const name = wanted.ifname != nullptr ? wanted.ifname : uplink.ifname.c_str();
    return has_only_rules(uplink.table, family,
                          rule_block(family, addr, 0, wanted.mark, name, uplink.rule_base)) &&
           has_only_routes(uplink.table, family,
                           source_routes(wanted.ifindex, family, addr, wanted.prefix,
                                         gateway.raw_unless_zero(family), wanted.metric));
}

bool nm::is_downlink_routed(const DownlinkRouting& wanted) {
    Downlink downlink{wanted.ifindex,
                      wanted.oif_ifindex,
                      TextAddress(wanted.ip),
                      wanted.prefix,
                      TextAddress(wanted.gw),
                      wanted.mark,
                      {}};
    const bool is_valid = wanted.ifindex != 0 && wanted.prefix != 0 &&
                          wanted.prefix <= family_bits(AF_INET6) && downlink.address.present() &&
                          downlink.address.read(AF_INET6) && downlink.gateway.read(AF_INET6);
    return is_valid && find_name(wanted.ifindex, downlink.numbers.ifname) == NM_OK &&
           number_uplink(wanted.ifindex, wanted.ifindex, downlink.numbers) == NM_OK && is_in_force(downlink);
}

int nm::route_downlink(const DownlinkRouting& wanted) {
    return is_downlink_routed(wanted)
               ? NM_OK
               : set_ip6_routerule_by_oifindex(wanted.ifindex, wanted.oif_ifindex, wanted.ip, wanted.prefix,
                                               wanted.gw, 1, wanted.mark);
}

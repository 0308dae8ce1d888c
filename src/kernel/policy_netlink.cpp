// What requests about routes and about rules share.
#include "kernel/policy_netlink.h"

#include <linux/fib_rules.h>
#include <netlink/attr.h>
#include <netlink/msg.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "result_codes.h"

namespace {

/// The fixed part of a message, among the numbers of its attributes.
constexpr int kHeader = -1;

/// The metric of an IPv6 route that is added without one (net/ipv6_route.h: IP6_RT_PRIO_USER).
constexpr uint32_t kIp6Metric = 1024;

template <class Value>
std::string bytes_of(const Value& value) {
    return {reinterpret_cast<const char*>(&value), sizeof(value)};
}

/// What the kernel says of every route and rule, and requests leave out or ask for by a zero.
bool goes_without_saying(bool is_route, int type, const std::string& value) {
    if (value.empty()) {
        return true;  // all destinations
    }
    if (is_route && type == RTA_CACHEINFO) {
        rta_cacheinfo age{};
        value.copy(reinterpret_cast<char*>(&age), sizeof(age));
        return age.rta_expires == 0;
    }
    if (is_route) {
        return (type == RTA_PRIORITY && value == bytes_of(uint32_t{0})) ||
               (type == RTA_PREF && value == bytes_of(uint8_t{0}));
    }
    return (type == FRA_SUPPRESS_PREFIXLEN && value == bytes_of(int32_t{-1})) ||
           (type == FRA_PROTOCOL && value == bytes_of(uint8_t{RTPROT_UNSPEC}));
}

void add_attributes(bool is_route, const nlattr* first, int length, nm::PolicyFact& fact) {
    const nlattr* attribute = nullptr;
    int left = 0;
    nla_for_each_attr(attribute, first, length, left) {
        const std::string value(static_cast<const char*>(nla_data(attribute)),
                                static_cast<size_t>(nla_len(attribute)));
        if (!goes_without_saying(is_route, nla_type(attribute), value)) {
            fact[nla_type(attribute)] = value;
        }
    }
}

/// IPv6 tells several routes of one metric as one with several next hops.
void split_hops(const nm::PolicyFact& route, nm::PolicyFacts& facts) {
    const std::string hops = route.at(RTA_MULTIPATH);
    rtnexthop hop{};
    for (size_t at = 0; at + sizeof(hop) <= hops.size();
         at += RTNH_ALIGN(std::max<size_t>(hop.rtnh_len, sizeof(hop)))) {
        memcpy(&hop, hops.data() + at, sizeof(hop));
        nm::PolicyFact single = route;
        single[RTA_MULTIPATH] = bytes_of(hop.rtnh_flags) + bytes_of(hop.rtnh_hops);
        if (hop.rtnh_flags == 0 && hop.rtnh_hops == 0) {
            single.erase(RTA_MULTIPATH);
        }
        single[RTA_OIF] = bytes_of(hop.rtnh_ifindex);
        add_attributes(true, reinterpret_cast<const nlattr*>(hops.data() + at + sizeof(hop)),
                       static_cast<int>(hop.rtnh_len - sizeof(hop)), single);
        facts.push_back(std::move(single));
    }
}

}  // namespace

namespace nm {

unsigned int family_bits(unsigned char family) {
    switch (family) {
        case AF_INET:
            return 32;
        case AF_INET6:
            return 128;
        default:
            return 0;
    }
}

unsigned char family_version(unsigned char family) {
    return family == AF_INET6 ? 6 : 4;
}

NlAddr raw_address(unsigned char family, const void* bytes) {
    const size_t length = bytes != nullptr ? family_bits(family) / 8 : 0;
    return NlAddr(nl_addr_build(family, bytes, length));
}

int open_policy_socket(const char* function, const char* needed, bool allocated, NlSocket& socket) {
    bool connected = false;
    socket = open_route_socket(connected);
    if (socket == nullptr || !allocated) {
        fprintf(stderr, "%s: Cannot allocate memory for %s object\n", function, needed);
        return NM_ERR_NOMEM;
    }
    if (!connected) {
        fprintf(stderr, "%s: connect socket for route netlink operation failed\n", function);
        return NM_ERR_NL_CONNECT;
    }
    return NM_OK;
}

RT_ID table_of(const nlmsghdr* message) {
    // The two headers have the same layout, and the attribute that carries large numbers the same type.
    static_assert(sizeof(rtmsg) == sizeof(fib_rule_hdr) &&
                  offsetof(rtmsg, rtm_table) == offsetof(fib_rule_hdr, table));
    static_assert(static_cast<int>(RTA_TABLE) == static_cast<int>(FRA_TABLE));
    auto* header = const_cast<nlmsghdr*>(message);
    const nlattr* large = nlmsg_find_attr(header, sizeof(rtmsg), RTA_TABLE);
    return large != nullptr ? nla_get_u32(large) : static_cast<const rtmsg*>(nlmsg_data(header))->rtm_table;
}

int read_policy(const char* function, const char* name, const DumpRequest& request, NlSocket& socket,
                NlObjects& objects) {
    const int ret = open_policy_socket(function, "socket", true, socket);
    if (ret != NM_OK) {
        return ret;
    }
    if (dump_objects(socket.get(), request, objects) < 0) {
        fprintf(stderr, "%s: Cannot allocate %s cache\n", function, name);
        return NM_ERR_NOMEM;
    }
    return NM_OK;
}

PolicyFact fact_of(const nlmsghdr* message) {
    auto* whole = const_cast<nlmsghdr*>(message);
    const bool is_route = message->nlmsg_type == RTM_NEWROUTE;
    rtmsg header = *static_cast<const rtmsg*>(nlmsg_data(message));
    header.rtm_table = RT_TABLE_UNSPEC;  // said by the attribute, which holds large numbers
    const bool is_route6 = is_route && header.rtm_family == AF_INET6;
    if (is_route6) {
        header.rtm_scope = RT_SCOPE_UNIVERSE;  // IPv6 does not know any
    }
    PolicyFact fact;
    add_attributes(is_route, nlmsg_attrdata(whole, sizeof(header)), nlmsg_attrlen(whole, sizeof(header)),
                   fact);
    fact[kHeader] = bytes_of(header);
    fact[RTA_TABLE] = bytes_of(table_of(message));
    if (is_route6) {
        fact.emplace(RTA_PRIORITY, bytes_of(kIp6Metric));
    }
    return fact;
}

int read_policy_facts(const DumpRequest& request, PolicyFacts& facts) {
    bool connected = false;
    const NlSocket socket = open_route_socket(connected);
    NlMessages messages;
    const int error = connected ? dump_messages(socket.get(), request, messages) : -NLE_BAD_SOCK;
    for (const NlMessage& message : messages) {
        const PolicyFact fact = fact_of(nlmsg_hdr(message.get()));
        if (request.type == RTM_GETROUTE && fact.count(RTA_MULTIPATH) != 0) {
            split_hops(fact, facts);
        } else {
            facts.push_back(fact);
        }
    }
    return error;
}

bool leads_out_of(const PolicyFact& route, unsigned int ifindex) {
    const auto device = route.find(RTA_OIF);
    return device != route.end() && device->second == bytes_of(ifindex);
}

bool is_same(PolicyFacts one, PolicyFacts other) {
    std::sort(one.begin(), one.end());
    std::sort(other.begin(), other.end());
    return one == other;
}

}  // namespace nm

// Single routes, by libnl's route objects.
#include "kernel/route.h"

#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <utility>

#include "kernel/link.h"
#include "kernel/netlink_steps.h"
#include "kernel/policy_netlink.h"
#include "log.h"
#include "result_codes.h"

namespace {

void report_failure(const char* action, unsigned char family, const char* kind, RT_ID table, int error) {
    fprintf(stderr, "%s IPv%hhu %s route in table %hhu: %s\n", action, nm::family_version(family), kind,
            static_cast<unsigned char>(table), nl_geterror(error));
}

/// The one way of a single route to the kernel. A null route is one for which memory ran out.
int __set_route(const nm::RtnlRoute& route, unsigned char add) {
    nm::NlSocket socket;
    const int ret = nm::open_policy_socket(__func__, "socket/route", route != nullptr, socket);
    if (ret == NM_ERR_NOMEM) {
        fprintf(stderr, "Alloc memory fail in set_route!\n");
    }
    if (ret != NM_OK) {
        return ret;
    }
    const auto request = add != 0 ? rtnl_route_add : rtnl_route_delete;
    const int error = request(socket.get(), route.get(), 0);
    if (error == 0) {
        return NM_OK;
    }
    const bool to_all = nl_addr_get_len(rtnl_route_get_dst(route.get())) == 0;
    report_failure(add != 0 ? "Add" : "Delete", rtnl_route_get_family(route.get()),
                   to_all ? "default" : "static", rtnl_route_get_table(route.get()), error);
    return add != 0 ? NM_ERR_NL_ROUTE_ADD : NM_ERR_NL_ROUTE_DELETE;
}

using AddressBytes = std::array<uint8_t, sizeof(in6_addr)>;

/// The address without its host bits, as the kernel refuses a network that has some.
AddressBytes network_bytes(unsigned char family, const void* bytes, unsigned char prefix) {
    AddressBytes network{};
    std::copy_n(static_cast<const uint8_t*>(bytes), nm::family_bits(family) / 8, network.begin());
    for (size_t i = 0; i < network.size(); ++i) {
        const int bits = std::clamp(prefix - static_cast<int>(i) * 8, 0, 8);
        network[i] &= static_cast<uint8_t>(0xff << (8 - bits));
    }
    return network;
}

nm::NlAddr destination(unsigned char family, const void* bytes, unsigned char prefix) {
    if (bytes == nullptr || prefix == 0) {
        return nm::raw_address(family, bytes);
    }
    const AddressBytes network = network_bytes(family, bytes, prefix);
    nm::NlAddr address = nm::raw_address(family, network.data());
    if (address != nullptr) {
        nl_addr_set_prefixlen(address.get(), prefix);
    }
    return address;
}

/// The next hop; null if memory runs out. libnl keeps a reference to the gateway.
nm::RtnlNextHop make_next_hop(unsigned char family, const void* gw, unsigned int ifindex) {
    nm::RtnlNextHop hop(rtnl_route_nh_alloc());
    if (hop == nullptr) {
        return nullptr;
    }
    if (ifindex != 0) {
        rtnl_route_nh_set_ifindex(hop.get(), static_cast<int>(ifindex));
    }
    if (gw == nullptr) {
        return hop;
    }
    const nm::NlAddr gateway = nm::raw_address(family, gw);
    if (gateway == nullptr) {
        return nullptr;
    }
    rtnl_route_nh_set_gateway(hop.get(), gateway.get());
    return hop;
}

/// MTU of the device, 0 if it is not known.
unsigned int device_mtu(unsigned int ifindex) {
    std::array<char, IFNAMSIZ> ifname{};
    int mtu = 0;
    if (if_indextoname(ifindex, ifname.data()) == nullptr || get_iface_mtu(ifname.data(), &mtu) != NM_OK) {
        return 0;
    }
    return static_cast<unsigned int>(mtu);
}

/// A default route carries the MTU of its device, locked.
void set_device_mtu(rtnl_route* route, unsigned int ifindex) {
    const unsigned int mtu = device_mtu(ifindex);
    if (mtu == 0) {
        NM_LOG(Error) << "MTU is not known, the default route carries none. Ifindex : " << ifindex;
        return;
    }
    (void)rtnl_route_set_metric(route, RTAX_MTU, mtu);  // both ids are in range
    (void)rtnl_route_set_metric(route, RTAX_LOCK, 1U << RTAX_MTU);
}

/// The route as libnl takes it; null if memory runs out. Protocol and metric choose none to delete.
nm::RtnlRoute make_route(RT_ID table, const nm::NewRoute& wanted, unsigned char protocol, bool add) {
    nm::RtnlNextHop hop = make_next_hop(wanted.family, wanted.gw, wanted.ifindex);
    const nm::NlAddr address = destination(wanted.family, wanted.dst, wanted.prefix);
    nm::RtnlRoute route(rtnl_route_alloc());
    if (hop == nullptr || address == nullptr || route == nullptr) {
        return nullptr;
    }
    rtnl_route_set_table(route.get(), table);
    (void)rtnl_route_set_family(route.get(), wanted.family);  // the callers have judged it
    (void)rtnl_route_set_dst(route.get(), address.get());
    rtnl_route_set_scope(route.get(), wanted.scope);
    if (add && protocol != 0) {
        rtnl_route_set_protocol(route.get(), protocol);
    }
    if (add && wanted.metric != 0) {
        rtnl_route_set_priority(route.get(), wanted.metric);
    }
    if (add && wanted.dst == nullptr) {
        set_device_mtu(route.get(), wanted.ifindex);
    }
    rtnl_route_add_nexthop(route.get(), hop.release());
    return route;
}

/// How many routes one request holds: the answers to all of them fit the default buffer of a socket.
constexpr size_t kBatch = 100;

/// Room for the request of one route: two headers, two addresses and three numbers.
constexpr size_t kRequestSize = 128;

/// Writes the request for a route to `at`; its length. The kernel's answer carries `sequence`.
size_t put_request(char* at, RT_ID table, const nm::NewRoute& route, uint32_t sequence) {
    nlmsghdr* const header = mnl_nlmsg_put_header(at);
    header->nlmsg_type = RTM_NEWROUTE;
    header->nlmsg_flags = NLM_F_REQUEST | NLM_F_CREATE | NLM_F_ACK;
    header->nlmsg_seq = sequence;
    const unsigned int bits = nm::family_bits(route.family);
    const auto prefix = static_cast<unsigned char>(route.prefix != 0 ? route.prefix : bits);
    auto* const body = static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(header, sizeof(rtmsg)));
    body->rtm_family = route.family;
    body->rtm_dst_len = prefix;
    body->rtm_protocol = RTPROT_STATIC;
    body->rtm_scope = RT_SCOPE_UNIVERSE;
    body->rtm_type = RTN_UNICAST;
    mnl_attr_put_u32(header, RTA_TABLE, table);
    mnl_attr_put(header, RTA_DST, bits / 8, network_bytes(route.family, route.dst, prefix).data());
    if (route.gw != nullptr) {
        mnl_attr_put(header, RTA_GATEWAY, bits / 8, route.gw);
    }
    for (const auto& [type, value] : {std::pair(RTA_OIF, route.ifindex), {RTA_PRIORITY, route.metric}}) {
        if (value != 0) {
            mnl_attr_put_u32(header, static_cast<uint16_t>(type), value);
        }
    }
    return header->nlmsg_len;
}

/// Reads the kernel's answers to routes[first] up to routes[end - 1].
int read_answers(mnl_socket* socket, RT_ID table, const std::vector<nm::NewRoute>& routes, size_t first,
                 size_t end, std::vector<bool>& added) {
    std::array<char, 8192> buffer{};  // the most that libmnl lets a message have
    for (size_t missing = end - first; missing != 0;) {
        const ssize_t length = mnl_socket_recvfrom(socket, buffer.data(), buffer.size());
        if (length < 0 && errno != EINTR) {
            return NM_ERR_NL_CONNECT;
        }
        int left = static_cast<int>(length);
        for (const auto* answer = reinterpret_cast<const nlmsghdr*>(buffer.data());
             mnl_nlmsg_ok(answer, left); answer = mnl_nlmsg_next(answer, &left)) {
            const size_t i = answer->nlmsg_seq;
            if (answer->nlmsg_type != NLMSG_ERROR || i < first || i >= end) {
                continue;
            }
            const int error = static_cast<const nlmsgerr*>(mnl_nlmsg_get_payload(answer))->error;
            added[i] = error == 0;
            if (error != 0) {
                report_failure("Add", routes[i].family, "static", table, -nl_syserr2nlerr(-error));
            }
            --missing;
        }
    }
    return NM_OK;
}

/// The request for the routes of one table. Exceptions that path MTU discovery or redirects hung onto an IPv6
/// route are dumped behind it and go with it.
struct RouteDump {
    RouteDump(unsigned char family, RT_ID id) : body{} {
        body.header.rtm_family = family;
        body.attribute = {sizeof(nlattr) + sizeof(RT_ID), RTA_TABLE};
        body.table = id;
    }
    nm::DumpRequest request() const {
        const auto is_wanted = [id = body.table](const nlmsghdr* message) {
            const unsigned int flags = static_cast<const rtmsg*>(nlmsg_data(message))->rtm_flags;
            return nm::table_of(message) == id && (flags & RTM_F_CLONED) == 0;
        };
        return {RTM_GETROUTE, &body, sizeof(body), is_wanted};
    }

    struct Body {
        rtmsg header;
        nlattr attribute;
        RT_ID table;
    } body;
    static_assert(sizeof(Body) == sizeof(rtmsg) + sizeof(nlattr) + sizeof(RT_ID));
};

int read_table(const char* function, unsigned char family, RT_ID table, nm::NlSocket& socket,
               nm::NlObjects& routes) {
    if (nm::family_bits(family) == 0) {
        return NM_ERR_BAD_FORMAT;
    }
    return nm::read_policy(function, "route", RouteDump(family, table).request(), socket, routes);
}

/// The request to add the route, as a fact.
nm::PolicyFact wanted_fact(RT_ID table, const nm::NewRoute& wanted) {
    const nm::RtnlRoute route = make_route(table, wanted, RTPROT_STATIC, true);
    nl_msg* request = nullptr;
    if (route == nullptr || rtnl_route_build_add_request(route.get(), 0, &request) < 0) {
        return {};
    }
    const nm::NlMessage owner(request);
    return nm::fact_of(nlmsg_hdr(request));
}

}  // namespace

int set_route(RT_ID table, unsigned char family, void* dst, unsigned char prefix, void* gw,
              unsigned int ifindex, unsigned char protocol, unsigned char scope, unsigned int metric,
              unsigned char add) {
    const unsigned int bits = nm::family_bits(family);
    if (bits == 0 || prefix > bits) {
        return NM_ERR_BAD_FORMAT;
    }
    const nm::NewRoute wanted{family, dst, prefix, gw, ifindex, metric, scope};
    return __set_route(make_route(table, wanted, protocol, add != 0), add);
}

int flush_route_table(unsigned char family, RT_ID table) {
    nm::NlSocket socket;
    nm::NlObjects routes;
    const int ret = read_table(__func__, family, table, socket, routes);
    if (ret != NM_OK) {
        return ret;
    }
    for (const auto& object : routes) {
        auto* route = reinterpret_cast<rtnl_route*>(object.get());
        const int error = rtnl_route_delete(socket.get(), route, 0);
        // A route that is gone already, with its device or its lifetime, is what was wanted.
        if (error != 0 && error != -NLE_OBJ_NOTFOUND) {
            return error;
        }
    }
    return NM_OK;
}

namespace nm {

int add_route(RT_ID table, const NewRoute& route) {
    return set_route(table, route.family, const_cast<void*>(route.dst), route.prefix,
                     const_cast<void*>(route.gw), route.ifindex, RTPROT_STATIC, route.scope, route.metric, 1);
}

bool has_only_routes(RT_ID table, unsigned char family, const std::vector<NewRoute>& routes,
                     unsigned int ifindex) {
    PolicyFacts present;
    if (family_bits(family) == 0 || read_policy_facts(RouteDump(family, table).request(), present) != 0) {
        return false;
    }
    const auto is_other = [=](const PolicyFact& fact) {
        return ifindex != 0 && !leads_out_of(fact, ifindex);
    };
    present.erase(std::remove_if(present.begin(), present.end(), is_other), present.end());
    PolicyFacts wanted;
    for (const NewRoute& route : routes) {
        wanted.push_back(wanted_fact(table, route));
    }
    return is_same(std::move(wanted), std::move(present));
}

int count_device_routes(RT_ID table, unsigned char family, unsigned int ifindex, unsigned int& count) {
    NlSocket socket;
    NlObjects routes;
    const int ret = read_table(__func__, family, table, socket, routes);
    if (ret != NM_OK) {
        return ret;
    }
    count = 0;
    for (const auto& object : routes) {
        auto* route = reinterpret_cast<rtnl_route*>(object.get());
        for (int n = 0; n < rtnl_route_get_nnexthops(route); ++n) {
            const int out = rtnl_route_nh_get_ifindex(rtnl_route_nexthop_n(route, n));
            count += static_cast<unsigned int>(out) == ifindex ? 1 : 0;
        }
    }
    return NM_OK;
}

int add_routes(RT_ID table, const std::vector<NewRoute>& routes, std::vector<bool>& added) {
    added.assign(routes.size(), false);
    const auto is_valid = [](const NewRoute& route) {
        return family_bits(route.family) != 0 && route.prefix <= family_bits(route.family);
    };
    if (!std::all_of(routes.begin(), routes.end(), is_valid)) {
        return NM_ERR_BAD_FORMAT;
    }
    const MnlSocket socket(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC));
    if (socket == nullptr || mnl_socket_bind(socket.get(), 0, MNL_SOCKET_AUTOPID) < 0) {
        return NM_ERR_NL_CONNECT;
    }
    std::vector<char> requests(kBatch * kRequestSize);
    int ret = NM_OK;
    for (size_t first = 0; first < routes.size() && ret == NM_OK; first += kBatch) {
        const size_t end = std::min(first + kBatch, routes.size());
        size_t length = 0;
        for (size_t i = first; i < end; ++i) {
            length += put_request(requests.data() + length, table, routes[i], static_cast<uint32_t>(i));
        }
        const Step step = exchange_step(reinterpret_cast<const nlmsghdr*>(requests.data()));
        const bool sent =
            mnl_socket_sendto(socket.get(), requests.data(), length) == static_cast<ssize_t>(length);
        ret = sent ? read_answers(socket.get(), table, routes, first, end, added) : NM_ERR_NL_CONNECT;
    }
    return ret;
}

}  // namespace nm

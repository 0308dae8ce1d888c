// Requests and notifications of rtnetlink(7).
#include "kernel_tables.h"

#include <errno.h>
#include <linux/fib_rules.h>
#include <linux/if_addr.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include <algorithm>
#include <cstring>
#include <iostream>
#include <set>

#include "icmp6.h"
#include "kernel/route_table.h"

namespace relay6 {

namespace {

using AddressSet = std::set<in6_addr, AddressOrder>;

// Marks routes and proxied addresses as ours (NDA_PROTOCOL, rtm_protocol); up to 255 all numbers are free to
// use that iproute2's rt_protos does not name.
constexpr std::uint8_t kProtocol = 106;
constexpr unsigned int kHostLength = 128;

constexpr std::uint16_t kAdd = NLM_F_REQUEST | NLM_F_ACK | NLM_F_CREATE | NLM_F_REPLACE;
constexpr std::uint16_t kAddOnce = NLM_F_REQUEST | NLM_F_ACK | NLM_F_CREATE | NLM_F_EXCL;
constexpr std::uint16_t kDelete = NLM_F_REQUEST | NLM_F_ACK;
constexpr std::uint16_t kDump = NLM_F_REQUEST | NLM_F_DUMP;

class Request {
public:
    template <class T>
    Request(std::uint16_t type, std::uint16_t flags, const T& body) {
        header_ = mnl_nlmsg_put_header(buffer_);
        header_->nlmsg_type = type;
        header_->nlmsg_flags = flags;
        std::memcpy(mnl_nlmsg_put_extra_header(header_, sizeof(body)), &body, sizeof(body));
    }
    template <class T>
    Request& put(std::uint16_t type, const T& value) {
        mnl_attr_put(header_, type, sizeof(value), &value);
        return *this;
    }
    Request& put_text(std::uint16_t type, const char* text) {
        mnl_attr_put_strz(header_, type, text);
        return *this;
    }
    operator nlmsghdr*() { return header_; }

private:
    alignas(nlmsghdr) char buffer_[256] = {};
    nlmsghdr* header_;
};

template <class Body>
const Body* body_of(const nlmsghdr* message) {
    return mnl_nlmsg_get_payload_len(message) < sizeof(Body)
               ? nullptr
               : static_cast<const Body*>(mnl_nlmsg_get_payload(message));
}

// The value of an attribute behind the body; false if there is none of this size.
template <class T, class Body>
bool attribute(const nlmsghdr* message, const Body*, std::uint16_t type, T& value) {
    const auto* end = static_cast<const char*>(mnl_nlmsg_get_payload_tail(message));
    const auto* each = static_cast<const nlattr*>(mnl_nlmsg_get_payload_offset(message, sizeof(Body)));
    while (mnl_attr_ok(each, static_cast<int>(end - reinterpret_cast<const char*>(each)))) {
        if (mnl_attr_get_type(each) == type && mnl_attr_get_payload_len(each) == sizeof(T)) {
            std::memcpy(&value, mnl_attr_get_payload(each), sizeof(T));
            return true;
        }
        each = mnl_attr_next(each);
    }
    return false;
}

Reach reach_of(std::uint16_t state) {
    constexpr std::uint16_t kConfirmed = NUD_REACHABLE | NUD_PERMANENT | NUD_NOARP;
    constexpr std::uint16_t kUnsure = NUD_STALE | NUD_DELAY | NUD_PROBE;
    return (state & kConfirmed) != 0 ? Reach::Confirmed
           : (state & kUnsure) != 0  ? Reach::Unsure
                                     : Reach::Gone;
}

// One that is looked for is neither there nor gone.
bool read_neighbor(const nlmsghdr* message, Neighbor& neighbor) {
    const auto* body = body_of<ndmsg>(message);
    if (body == nullptr || body->ndm_family != AF_INET6 || (body->ndm_flags & NTF_PROXY) != 0 ||
        (message->nlmsg_type == RTM_NEWNEIGH && (body->ndm_state & (NUD_INCOMPLETE | NUD_NONE)) != 0)) {
        return false;
    }
    neighbor.ifindex = static_cast<unsigned int>(body->ndm_ifindex);
    neighbor.reach = message->nlmsg_type == RTM_DELNEIGH ? Reach::Gone : reach_of(body->ndm_state);
    return attribute(message, body, NDA_DST, neighbor.address);
}

mnl_socket* open_socket(unsigned int groups) {
    mnl_socket* socket = mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC);
    if (socket != nullptr && mnl_socket_bind(socket, groups, MNL_SOCKET_AUTOPID) == 0) {
        return socket;
    }
    std::cerr << "6relayd: no netlink socket: " << std::strerror(errno) << '\n';
    if (socket != nullptr) {
        (void)mnl_socket_close(socket);
    }
    return nullptr;
}

ndmsg neighbor_body(unsigned int ifindex, std::uint8_t flags) {
    ndmsg body{};
    body.ndm_family = AF_INET6;
    body.ndm_ifindex = static_cast<int>(ifindex);
    body.ndm_flags = flags;
    return body;
}

rtmsg route_body() {
    rtmsg body{};
    body.rtm_family = AF_INET6;
    body.rtm_dst_len = kHostLength;
    body.rtm_table = RT_TABLE_MAIN;
    body.rtm_protocol = kProtocol;
    body.rtm_scope = RT_SCOPE_LINK;
    body.rtm_type = RTN_UNICAST;
    return body;
}

bool read_proxy(const nlmsghdr* message, Entry& entry) {
    const auto* body = body_of<ndmsg>(message);
    std::uint8_t protocol = 0;
    if (body == nullptr || !attribute(message, body, NDA_DST, entry.address) ||
        !attribute(message, body, NDA_PROTOCOL, protocol) || protocol != kProtocol) {
        return false;
    }
    entry.ifindex = static_cast<unsigned int>(body->ndm_ifindex);
    return true;
}

bool read_host_route(const nlmsghdr* message, Entry& entry) {
    const auto* body = body_of<rtmsg>(message);
    return body != nullptr && body->rtm_protocol == kProtocol && body->rtm_dst_len == kHostLength &&
           attribute(message, body, RTA_DST, entry.address) &&
           attribute(message, body, RTA_OIF, entry.ifindex);
}

}  // namespace

std::unique_ptr<KernelTables> KernelTables::open() {
    mnl_socket* socket = open_socket(0);
    return socket == nullptr ? nullptr : std::unique_ptr<KernelTables>(new KernelTables(socket));
}

bool KernelTables::exchange(nlmsghdr* request, const std::function<void(const nlmsghdr*)>& each) {
    alignas(nlmsghdr) char buffer[32768];
    const auto hand_over = [](const nlmsghdr* message, void* function) {
        (*static_cast<const std::function<void(const nlmsghdr*)>*>(function))(message);
        return MNL_CB_OK;
    };
    const unsigned int port = mnl_socket_get_portid(socket_.get());
    request->nlmsg_seq = ++sequence_;
    if (mnl_socket_sendto(socket_.get(), request, request->nlmsg_len) < 0) {
        return false;
    }
    int state = MNL_CB_OK;
    while (state > MNL_CB_STOP) {
        const ssize_t size = mnl_socket_recvfrom(socket_.get(), buffer, sizeof(buffer));
        state = size < 0 ? MNL_CB_ERROR
                         : mnl_cb_run(buffer, static_cast<std::size_t>(size), sequence_, port, hand_over,
                                      const_cast<std::function<void(const nlmsghdr*)>*>(&each));
    }
    return state == MNL_CB_STOP;
}

void KernelTables::change(nlmsghdr* request, const std::string& what) {
    const bool done = exchange(request, [](const nlmsghdr*) {});
    if (!done && errno != EEXIST && errno != ENOENT && errno != ESRCH) {
        std::cerr << "6relayd: " + what + ": " + std::strerror(errno) + '\n';
    }
}

void KernelTables::proxy(const in6_addr& address, unsigned int ifindex, bool add) {
    Request request(add ? RTM_NEWNEIGH : RTM_DELNEIGH, add ? kAdd : kDelete,
                    neighbor_body(ifindex, NTF_PROXY));
    change(request.put(NDA_DST, address).put(NDA_PROTOCOL, kProtocol), "proxy of " + spelled(address));
}

void KernelTables::host_route(const in6_addr& address, unsigned int ifindex, bool add) {
    Request request(add ? RTM_NEWROUTE : RTM_DELROUTE, add ? kAdd : kDelete, route_body());
    change(request.put(RTA_DST, address).put(RTA_OIF, ifindex), "route to " + spelled(address));
}

void KernelTables::downlink_rules(unsigned int ifindex, unsigned int table, bool add) {
    char name[IF_NAMESIZE] = "";
    if (if_indextoname(ifindex, name) == nullptr) {
        return;
    }
    for (const nm::RuleSlot slot : {nm::RuleSlot::RelayMain, nm::RuleSlot::RelayUplink}) {
        fib_rule_hdr body{};
        body.family = AF_INET6;
        body.action = FR_ACT_TO_TBL;
        Request request(add ? RTM_NEWRULE : RTM_DELRULE, add ? kAddOnce : kDelete, body);
        request.put(FRA_PRIORITY, nm::rule_priority(nm::uplink_rule_base(ifindex), slot))
            .put_text(FRA_IIFNAME, name);
        if (slot == nm::RuleSlot::RelayMain) {
            request.put(FRA_TABLE, std::uint32_t{RT_TABLE_MAIN})
                .put(FRA_SUPPRESS_PREFIXLEN, std::uint32_t{0});
        } else if (table != 0) {
            request.put(FRA_TABLE, std::uint32_t{table});
        }
        change(request, std::string("rules of ") + name);
    }
}

void KernelTables::look_for(const in6_addr& address, unsigned int ifindex) {
    Request request(RTM_NEWNEIGH, NLM_F_REQUEST | NLM_F_ACK | NLM_F_CREATE, neighbor_body(ifindex, NTF_USE));
    change(request.put(NDA_DST, address), "search for " + spelled(address));
}

std::vector<LocalAddress> KernelTables::addresses() {
    std::vector<LocalAddress> found;
    ifaddrmsg body{};
    body.ifa_family = AF_INET6;
    Request request(RTM_GETADDR, kDump, body);
    (void)exchange(request, [&found](const nlmsghdr* message) {
        const auto* each = body_of<ifaddrmsg>(message);
        LocalAddress address{};
        if (each != nullptr && (attribute(message, each, IFA_LOCAL, address.address) ||
                                attribute(message, each, IFA_ADDRESS, address.address))) {
            address.ifindex = each->ifa_index;
            address.prefix = each->ifa_prefixlen;
            address.usable = (each->ifa_flags & (IFA_F_TENTATIVE | IFA_F_DADFAILED)) == 0;
            found.push_back(address);
        }
    });
    return found;
}

std::vector<Neighbor> KernelTables::neighbors() {
    std::vector<Neighbor> found;
    Request request(RTM_GETNEIGH, kDump, neighbor_body(0, 0));
    (void)exchange(request, [&found](const nlmsghdr* message) {
        Neighbor neighbor{};
        if (read_neighbor(message, neighbor)) {
            found.push_back(neighbor);
        }
    });
    return found;
}

template <class Read>
std::vector<Entry> KernelTables::entries(nlmsghdr* request, Read read) {
    std::vector<Entry> found;
    (void)exchange(request, [&](const nlmsghdr* message) {
        Entry entry{};
        if (read(message, entry)) {
            found.push_back(entry);
        }
    });
    return found;
}

void KernelTables::clean(unsigned int uplink, unsigned int downlink) {
    Request all_neighbors(RTM_GETNEIGH, kDump, neighbor_body(0, NTF_PROXY));
    Request all_routes(RTM_GETROUTE, kDump, route_body());
    const std::vector<Entry> proxies = entries(all_neighbors, read_proxy);
    const std::vector<Entry> routes = entries(all_routes, read_host_route);
    AddressSet here, behind_others, answered_elsewhere;
    const auto sort_in = [&](unsigned int ifindex, const in6_addr& address) {
        if (ifindex != uplink) {
            (ifindex == downlink ? here : behind_others).insert(address);
        }
    };
    for (const Entry& route : routes) {
        sort_in(route.ifindex, route.address);
    }
    for (const LocalAddress& local : addresses()) {
        sort_in(local.ifindex, local.address);
    }
    for (const Entry& each : proxies) {
        if (each.ifindex == downlink || here.count(each.address) > 0 ||
            (each.ifindex == uplink && behind_others.count(each.address) == 0)) {
            proxy(each.address, each.ifindex, false);
        } else {
            answered_elsewhere.insert(each.address);
        }
    }
    for (const Entry& each : routes) {
        if (each.ifindex == downlink ||
            (each.ifindex == uplink && answered_elsewhere.count(each.address) == 0)) {
            host_route(each.address, each.ifindex, false);
        }
    }
    downlink_rules(downlink, 0, false);
}

std::unique_ptr<KernelEvents> KernelEvents::open() {
    mnl_socket* socket =
        open_socket(RTMGRP_NEIGH | RTMGRP_IPV6_IFADDR | RTMGRP_LINK | 1U << (RTNLGRP_IPV6_RULE - 1));
    return socket == nullptr ? nullptr : std::unique_ptr<KernelEvents>(new KernelEvents(socket));
}

namespace {

int dispatch(const nlmsghdr* message, void* data) {
    const auto& watcher = *static_cast<const Watcher*>(data);
    Neighbor neighbor{};
    switch (message->nlmsg_type) {
        case RTM_NEWNEIGH:
        case RTM_DELNEIGH:
            if (read_neighbor(message, neighbor)) {
                watcher.neighbor(neighbor);
            }
            break;
        case RTM_NEWADDR:
        case RTM_DELADDR:
            watcher.addresses();
            break;
        case RTM_DELRULE:
            watcher.rule_gone();
            break;
        case RTM_DELLINK:
            if (const auto* body = body_of<ifinfomsg>(message);
                body != nullptr && body->ifi_family == AF_UNSPEC) {
                watcher.link_gone(static_cast<unsigned int>(body->ifi_index));
            }
            break;
        default:
            break;
    }
    return MNL_CB_OK;
}

}  // namespace

bool KernelEvents::read(const Watcher& watcher) {
    alignas(nlmsghdr) char buffer[32768];
    const ssize_t size = mnl_socket_recvfrom(socket_.get(), buffer, sizeof(buffer));
    if (size < 0) {
        return errno != ENOBUFS;
    }
    (void)mnl_cb_run(buffer, static_cast<std::size_t>(size), 0, 0, dispatch, const_cast<Watcher*>(&watcher));
    return true;
}

}  // namespace relay6

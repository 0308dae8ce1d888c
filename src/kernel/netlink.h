// Owners of netlink handles: each frees what it holds when it goes out of scope, whichever way a
// function is left. Nothing here outlives one call.
#pragma once

#include <libmnl/libmnl.h>
#include <netlink/addr.h>
#include <netlink/cache.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/route/addr.h>
#include <netlink/route/link.h>
#include <netlink/route/nexthop.h>
#include <netlink/route/route.h>
#include <netlink/route/rule.h>

#include <functional>
#include <memory>
#include <vector>

namespace nm {

struct NlDeleter {
    void operator()(mnl_socket* socket) const { (void)mnl_socket_close(socket); }  // nothing left to lose
    void operator()(nl_sock* socket) const { nl_socket_free(socket); }
    void operator()(nl_addr* address) const { nl_addr_put(address); }
    void operator()(nl_msg* message) const { nlmsg_free(message); }
    void operator()(nl_object* object) const { nl_object_put(object); }
    void operator()(rtnl_link* link) const { rtnl_link_put(link); }
    void operator()(rtnl_addr* address) const { rtnl_addr_put(address); }
    void operator()(rtnl_route* route) const { rtnl_route_put(route); }
    void operator()(rtnl_nexthop* hop) const { rtnl_route_nh_free(hop); }
    void operator()(rtnl_rule* rule) const { rtnl_rule_put(rule); }
    /// A provided cache has to be withdrawn from libnl before it is freed; otherwise this is a no-op.
    void operator()(nl_cache* cache) const {
        nl_cache_mngt_unprovide(cache);
        nl_cache_free(cache);
    }
};

using MnlSocket = std::unique_ptr<mnl_socket, NlDeleter>;
using NlSocket = std::unique_ptr<nl_sock, NlDeleter>;
using NlCache = std::unique_ptr<nl_cache, NlDeleter>;
using NlAddr = std::unique_ptr<nl_addr, NlDeleter>;
using RtnlLink = std::unique_ptr<rtnl_link, NlDeleter>;
using RtnlAddr = std::unique_ptr<rtnl_addr, NlDeleter>;
using RtnlRoute = std::unique_ptr<rtnl_route, NlDeleter>;
using RtnlNextHop = std::unique_ptr<rtnl_nexthop, NlDeleter>;
using RtnlRule = std::unique_ptr<rtnl_rule, NlDeleter>;
using NlMessage = std::unique_ptr<nl_msg, NlDeleter>;
using NlMessages = std::vector<NlMessage>;
using NlObjects = std::vector<std::unique_ptr<nl_object, NlDeleter>>;

/// A netlink socket connected to the kernel, on which a dump that the kernel breaks off is a failure. Null
/// when the socket could not be allocated; `connected` tells whether the connection stands.
NlSocket open_netlink_socket(int protocol, bool& connected);

/// The same for rtnetlink.
NlSocket open_route_socket(bool& connected);

/// The codes by which a function tells the two ways of not reaching the kernel.
struct ConnectCodes {
    int socket;
    int connect;
};

/// Stores a connected rtnetlink socket in `socket`. 0, or the code of the step that failed.
int connect_route_socket(NlSocket& socket, ConnectCodes codes);

/// The kernel's link table as of now, or null.
NlCache read_links(nl_sock* socket);

/// The kernel's address table as of now, or null.
NlCache read_addresses(nl_sock* socket);

/// What becomes of the search for a device.
enum class LinkSearch { Found, Absent, Failed };

/// Stores the device of that name as the kernel has it now. One is asked for and not the whole table, which
/// takes the longer the more devices there are. An alternative name is not the device's.
LinkSearch find_link(nl_sock* socket, const char* ifname, RtnlLink& link);

/// What is dumped: the message type, and the whole body of the request. By what is set in the body, kernels
/// since 4.20 choose what they send; the predicate leaves out what older ones send besides.
struct DumpRequest {
    int type;
    const void* body;
    size_t size;
    std::function<bool(const nlmsghdr*)> is_wanted;
};

/// Stores what the kernel answers, in its order. 0, also where the kernel knows no such device or table; a
/// libnl error.
int dump_messages(nl_sock* socket, const DumpRequest& request, NlMessages& messages);

/// The same as objects, which hold what libnl knows of a message.
int dump_objects(nl_sock* socket, const DumpRequest& request, NlObjects& objects);

/// The addresses of one device and family as of now, and the socket by which to change them.
struct AddressTable {
    NlSocket socket;
    NlObjects addresses;
};

/// Reads them afresh. 0, the code of a failed connection, or NM_ERR_NOMEM if they can't be read.
int read_address_table(unsigned int ifindex, int family, ConnectCodes codes, AddressTable& table);

/// A link object that carries only a name, for filters and changes. Null if memory runs out.
RtnlLink named_link(const char* ifname);

}  // namespace nm

// Owners of netlink handles: each frees what it holds when it goes out of scope, whichever way a
// function is left. Nothing here outlives one call.
#pragma once

#include <libmnl/libmnl.h>
#include <netlink/addr.h>
#include <netlink/cache.h>
#include <netlink/netlink.h>
#include <netlink/route/addr.h>
#include <netlink/route/link.h>

#include <memory>

namespace nm {

struct NlDeleter {
    void operator()(mnl_socket* socket) const { (void)mnl_socket_close(socket); }  // nothing left to lose
    void operator()(nl_sock* socket) const { nl_socket_free(socket); }
    void operator()(rtnl_link* link) const { rtnl_link_put(link); }
    void operator()(rtnl_addr* address) const { rtnl_addr_put(address); }
    /// A provided cache has to be withdrawn from libnl before it is freed; otherwise this is a no-op.
    void operator()(nl_cache* cache) const {
        nl_cache_mngt_unprovide(cache);
        nl_cache_free(cache);
    }
};

using MnlSocket = std::unique_ptr<mnl_socket, NlDeleter>;
using NlSocket = std::unique_ptr<nl_sock, NlDeleter>;
using NlCache = std::unique_ptr<nl_cache, NlDeleter>;
using RtnlLink = std::unique_ptr<rtnl_link, NlDeleter>;
using RtnlAddr = std::unique_ptr<rtnl_addr, NlDeleter>;

/// A rtnetlink socket connected to the kernel. Null when the socket could not be allocated; `connected`
/// tells whether the connection stands.
NlSocket open_route_socket(bool& connected);

/// The kernel's link table as of now, or null.
NlCache read_links(nl_sock* socket);

/// The kernel's address table as of now, or null.
NlCache read_addresses(nl_sock* socket);

/// A link object that carries only a name, for filters and changes. Null if memory runs out.
RtnlLink named_link(const char* ifname);

}  // namespace nm

// Owners of netlink handles.
#include "kernel/netlink.h"

namespace nm {

NlSocket open_route_socket(bool& connected) {
    NlSocket socket(nl_socket_alloc());
    connected = socket != nullptr && nl_connect(socket.get(), NETLINK_ROUTE) == 0;
    return socket;
}

NlCache read_links(nl_sock* socket) {
    nl_cache* cache = nullptr;
    return NlCache(rtnl_link_alloc_cache(socket, AF_UNSPEC, &cache) == 0 ? cache : nullptr);
}

NlCache read_addresses(nl_sock* socket) {
    nl_cache* cache = nullptr;
    return NlCache(rtnl_addr_alloc_cache(socket, &cache) == 0 ? cache : nullptr);
}

RtnlLink named_link(const char* ifname) {
    RtnlLink link(rtnl_link_alloc());
    if (link != nullptr) {
        rtnl_link_set_name(link.get(), ifname);
    }
    return link;
}

}  // namespace nm

// Owners of netlink handles.
#include "kernel/netlink.h"

#include "result_codes.h"

namespace nm {

NlSocket open_route_socket(bool& connected) {
    NlSocket socket(nl_socket_alloc());
    connected = socket != nullptr && nl_connect(socket.get(), NETLINK_ROUTE) == 0;
    return socket;
}

int connect_route_socket(NlSocket& socket, ConnectCodes codes) {
    bool connected = false;
    socket = open_route_socket(connected);
    if (socket == nullptr) {
        return codes.socket;
    }
    return connected ? NM_OK : codes.connect;
}

NlCache read_links(nl_sock* socket) {
    nl_cache* cache = nullptr;
    return NlCache(rtnl_link_alloc_cache(socket, AF_UNSPEC, &cache) == 0 ? cache : nullptr);
}

NlCache read_addresses(nl_sock* socket) {
    nl_cache* cache = nullptr;
    return NlCache(rtnl_addr_alloc_cache(socket, &cache) == 0 ? cache : nullptr);
}

int read_address_table(AddressTable& table, ConnectCodes codes) {
    const int ret = connect_route_socket(table.socket, codes);
    if (ret != NM_OK) {
        return ret;
    }
    table.addresses = read_addresses(table.socket.get());
    return table.addresses != nullptr ? NM_OK : NM_ERR_NOMEM;
}

RtnlLink named_link(const char* ifname) {
    RtnlLink link(rtnl_link_alloc());
    if (link != nullptr) {
        rtnl_link_set_name(link.get(), ifname);
    }
    return link;
}

}  // namespace nm

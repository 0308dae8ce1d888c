// Addresses on devices, by libnl's address cache.
#include "kernel/address.h"

#include <net/if.h>
#include <netlink/route/rtnl.h>
#include <netlink/utils.h>

#include <array>
#include <cstdio>
#include <cstring>

#include "kernel/netlink.h"
#include "result_codes.h"

namespace {

void append_device_name(nl_object* object, void* argument) {
    auto* names = static_cast<char*>(argument);
    const int ifindex = rtnl_addr_get_ifindex(reinterpret_cast<rtnl_addr*>(object));
    nl_cache* links = nl_cache_mngt_require_safe("route/link");
    if (links == nullptr) {
        fprintf(stderr, "link cache is NULL, dev=%d\n", ifindex);
        return;
    }
    std::array<char, IFNAMSIZ> name{};
    if (rtnl_link_i2name(links, ifindex, name.data(), name.size()) != nullptr) {
        if (*names != '\0') {
            strcat(names, " ");
        }
        strcat(names, name.data());
    }
    nl_cache_put(links);
}

}  // namespace

int get_interface_with_address(const char* scope, const char* family, char* names) {
    if (scope == nullptr || family == nullptr || names == nullptr) {
        return NM_ERR_NULL_ARG;
    }
    bool connected = false;
    const nm::NlSocket socket = nm::open_route_socket(connected);
    if (socket == nullptr) {
        return NM_ERR_NOMEM;
    }
    if (!connected) {
        return NM_ERR_SOCKET;
    }
    const nm::NlCache links = nm::read_links(socket.get());
    const nm::NlCache addresses = nm::read_addresses(socket.get());
    const nm::RtnlAddr filter(rtnl_addr_alloc());
    if (links == nullptr || addresses == nullptr || filter == nullptr) {
        return NM_ERR_NOMEM;
    }
    nl_cache_mngt_provide(links.get());
    rtnl_addr_set_family(filter.get(), nl_str2af(family));
    rtnl_addr_set_scope(filter.get(), rtnl_str2scope(scope));
    nl_cache_foreach_filter(addresses.get(), OBJ_CAST(filter.get()), append_device_name, names);
    return *names != '\0' ? 1 : 0;
}

// What requests about routes and about rules share.
#include "kernel/policy_netlink.h"

#include <linux/fib_rules.h>
#include <netlink/attr.h>
#include <netlink/msg.h>

#include <cstddef>
#include <cstdio>

#include "result_codes.h"

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

}  // namespace nm

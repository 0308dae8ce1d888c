// What requests about routes and about rules share.
#include "kernel/policy_netlink.h"

#include <netlink/msg.h>
#include <netlink/route/rtnl.h>

#include <cstdio>

#include "result_codes.h"

namespace {

void keep_object(nl_object* object, void* objects) {
    nl_object_get(object);
    static_cast<nm::PolicyObjects*>(objects)->emplace_back(object);
}

int collect_objects(nl_msg* message, void* objects) {
    return nl_msg_parse(message, keep_object, objects) < 0 ? NL_SKIP : NL_OK;
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

int read_policy(const char* function, const PolicyTable& table, unsigned char family, NlSocket& socket,
                PolicyObjects& objects) {
    if (family_bits(family) == 0) {
        return NM_ERR_BAD_FORMAT;
    }
    const int ret = open_policy_socket(function, "socket", true, socket);
    if (ret != NM_OK) {
        return ret;
    }
    (void)nl_socket_modify_cb(socket.get(), NL_CB_VALID, NL_CB_CUSTOM, collect_objects, &objects);
    constexpr int kTries = 5;
    int error = -NLE_DUMP_INTR;  // what a table that changes under the dump gives
    for (int attempt = 0; attempt < kTries && error == -NLE_DUMP_INTR; ++attempt) {
        objects.clear();
        error = nl_rtgen_request(socket.get(), table.request, family, NLM_F_DUMP);
        error = error < 0 ? error : nl_recvmsgs_default(socket.get());
    }
    if (error < 0) {
        fprintf(stderr, "%s: Cannot allocate %s cache\n", function, table.name);
        return NM_ERR_NOMEM;
    }
    return NM_OK;
}

}  // namespace nm

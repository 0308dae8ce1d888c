// Owners of netlink handles.
#include "kernel/netlink.h"

#include <linux/if_addr.h>
#include <net/if.h>
#include <netlink/errno.h>
#include <netlink/msg.h>
#include <netlink/route/rtnl.h>
#include <sys/socket.h>

#include <cstring>

#include "kernel/netlink_steps.h"
#include "result_codes.h"

namespace {

/// The last message of a dump carries 0 or the negative errno that ended it, at which libnl does not look.
int judge_end_of_dump(nl_msg* message, void*) {
    const nlmsghdr* header = nlmsg_hdr(message);
    int error = 0;
    if (nlmsg_datalen(header) >= static_cast<int>(sizeof(error))) {
        memcpy(&error, nlmsg_data(header), sizeof(error));
    }
    return error < 0 ? -nl_syserr2nlerr(-error) : NL_OK;
}

struct Collection {
    const nm::DumpRequest& request;
    nm::NlMessages& messages;
};

void keep_object(nl_object* object, void* objects) {
    nl_object_get(object);
    static_cast<nm::NlObjects*>(objects)->emplace_back(object);
}

int collect_message(nl_msg* message, void* argument) {
    const auto* collection = static_cast<const Collection*>(argument);
    if (collection->request.is_wanted(nlmsg_hdr(message))) {
        nlmsg_get(message);
        collection->messages.emplace_back(message);
    }
    return NL_OK;
}

/// A kernel that cannot choose sends all.
void let_kernel_choose(nl_sock* socket) {
    const int on = 1;
    (void)setsockopt(nl_socket_get_fd(socket), SOL_NETLINK, NETLINK_GET_STRICT_CHK, &on, sizeof(on));
}

}  // namespace

namespace nm {

NlSocket open_netlink_socket(int protocol, bool& connected) {
    NlSocket socket(nl_socket_alloc());
    connected =
        socket != nullptr && nl_connect(socket.get(), protocol) == 0 &&
        nl_socket_modify_cb(socket.get(), NL_CB_FINISH, NL_CB_CUSTOM, judge_end_of_dump, nullptr) == 0;
    if (connected) {
        watch_exchanges(socket.get());
    }
    return socket;
}

NlSocket open_route_socket(bool& connected) {
    return open_netlink_socket(NETLINK_ROUTE, connected);
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

LinkSearch find_link(nl_sock* socket, const char* ifname, RtnlLink& link) {
    // libnl would cut such a name, and the answer would be about another device.
    if (strlen(ifname) >= IFNAMSIZ) {
        return LinkSearch::Absent;
    }
    rtnl_link* found = nullptr;
    const int error = rtnl_link_get_kernel(socket, 0, ifname, &found);
    link.reset(found);
    if (error == -NLE_NODEV || error == -NLE_OBJ_NOTFOUND) {
        return LinkSearch::Absent;
    }
    if (error < 0) {
        return LinkSearch::Failed;
    }
    return strcmp(rtnl_link_get_name(link.get()), ifname) == 0 ? LinkSearch::Found : LinkSearch::Absent;
}

int dump_messages(nl_sock* socket, const DumpRequest& request, NlMessages& messages) {
    Collection collection{request, messages};
    (void)nl_socket_modify_cb(socket, NL_CB_VALID, NL_CB_CUSTOM, collect_message, &collection);
    let_kernel_choose(socket);
    constexpr int kTries = 5;
    int error = -NLE_DUMP_INTR;  // what a table that changes under the dump gives
    for (int attempt = 0; attempt < kTries && error == -NLE_DUMP_INTR; ++attempt) {
        messages.clear();
        error =
            nl_send_simple(socket, request.type, NLM_F_DUMP, const_cast<void*>(request.body), request.size);
        error = error < 0 ? error : nl_recvmsgs_default(socket);
    }
    (void)nl_socket_modify_cb(socket, NL_CB_VALID, NL_CB_DEFAULT, nullptr, nullptr);
    const bool is_unknown = error == -NLE_NODEV || error == -NLE_OBJ_NOTFOUND;
    return error < 0 && !is_unknown ? error : 0;
}

int dump_objects(nl_sock* socket, const DumpRequest& request, NlObjects& objects) {
    NlMessages messages;
    const int error = dump_messages(socket, request, messages);
    objects.clear();
    for (const NlMessage& message : messages) {
        (void)nl_msg_parse(message.get(), keep_object, &objects);  // of a kind that libnl does not know
    }
    return error;
}

int read_address_table(unsigned int ifindex, int family, ConnectCodes codes, AddressTable& table) {
    const int ret = connect_route_socket(table.socket, codes);
    if (ret != NM_OK) {
        return ret;
    }
    ifaddrmsg body{};
    body.ifa_family = static_cast<unsigned char>(family);
    body.ifa_index = ifindex;
    const auto is_wanted = [=](const nlmsghdr* header) {
        const auto* address = static_cast<const ifaddrmsg*>(nlmsg_data(header));
        return address->ifa_index == ifindex && address->ifa_family == family;
    };
    const DumpRequest request{RTM_GETADDR, &body, sizeof(body), is_wanted};
    return dump_objects(table.socket.get(), request, table.addresses) == 0 ? NM_OK : NM_ERR_NOMEM;
}

RtnlLink named_link(const char* ifname) {
    RtnlLink link(rtnl_link_alloc());
    if (link != nullptr) {
        rtnl_link_set_name(link.get(), ifname);
    }
    return link;
}

}  // namespace nm

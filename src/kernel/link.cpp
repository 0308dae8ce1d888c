// Device flags, MTU, name and counters: raw netlink for the first two, libnl for the rest.
#include "kernel/link.h"

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <utility>
#include <vector>

#include "kernel/netlink.h"
#include "kernel/netlink_steps.h"
#include "log.h"
#include "result_codes.h"
#include "utils/handles.h"

namespace {

/// What a query is about and what it found.
struct LinkQuery {
    const char* ifname;
    unsigned int flags = 0;
    int mtu = 0;
};

/// The two attributes of a link message that queries look at.
struct LinkAttributes {
    const char* name = nullptr;
    int mtu = 0;
};

int read_attribute(const nlattr* attribute, void* argument) {
    auto* attributes = static_cast<LinkAttributes*>(argument);
    const uint16_t type = mnl_attr_get_type(attribute);
    if (type == IFLA_IFNAME && mnl_attr_validate(attribute, MNL_TYPE_NUL_STRING) == 0) {
        attributes->name = mnl_attr_get_str(attribute);
    }
    if (type == IFLA_MTU && mnl_attr_validate(attribute, MNL_TYPE_U32) == 0) {
        attributes->mtu = static_cast<int>(mnl_attr_get_u32(attribute));
    }
    return MNL_CB_OK;
}

/// The kernel also finds devices by their alternative names.
int read_link(const nlmsghdr* message, void* argument) {
    if (message->nlmsg_type != RTM_NEWLINK) {
        return MNL_CB_OK;
    }
    const auto* info = static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(message));
    LinkAttributes attributes;
    (void)mnl_attr_parse(message, sizeof(*info), read_attribute, &attributes);  // the callback never fails
    auto* query = static_cast<LinkQuery*>(argument);
    if (attributes.name != nullptr && strcmp(attributes.name, query->ifname) == 0) {
        query->flags = info->ifi_flags;
        query->mtu = attributes.mtu;
    }
    return MNL_CB_OK;
}

/// One request, and its answer up to the acknowledgement. 0 or a code; `refusal` takes the errno that the
/// kernel answered, 0 without one. A device with many alternative names needs more than libmnl's usual 8 KiB.
int talk(const nlmsghdr* request, mnl_cb_t callback, void* argument, int& refusal) {
    const nm::MnlSocket socket(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC));
    if (socket == nullptr) {
        return NM_ERR_SOCKET;
    }
    if (mnl_socket_bind(socket.get(), 0, MNL_SOCKET_AUTOPID) < 0) {
        return NM_ERR_NL_CONNECT;
    }
    const nm::Step step = nm::exchange_step(request);
    if (mnl_socket_sendto(socket.get(), request, request->nlmsg_len) < 0) {
        return NM_ERR_SEND;
    }
    std::vector<char> answer(size_t{32} << 10);
    const unsigned int port = mnl_socket_get_portid(socket.get());
    int run = MNL_CB_OK;
    while (run > MNL_CB_STOP) {
        const ssize_t length = mnl_socket_recvfrom(socket.get(), answer.data(), answer.size());
        if (length < 0 && errno == EINTR) {
            continue;
        }
        if (length < 0) {
            return NM_ERR_RECEIVE;
        }
        if (length == 0) {
            return NM_OK;
        }
        run = mnl_cb_run(answer.data(), static_cast<size_t>(length), request->nlmsg_seq, port, callback,
                         argument);
    }
    refusal = run == MNL_CB_ERROR ? errno : 0;
    return run == MNL_CB_ERROR ? NM_ERR_IOCTL : NM_OK;
}

/// Asks for the one device of that name, without its counters. A device that does not exist is not a failure;
/// neither is a kernel that does not answer, which is logged.
void query_link(LinkQuery& query) {
    alignas(nlmsghdr) std::array<char, 128> buffer{};
    nlmsghdr* request = mnl_nlmsg_put_header(buffer.data());
    request->nlmsg_type = RTM_GETLINK;
    request->nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
    request->nlmsg_seq = static_cast<uint32_t>(time(nullptr));
    mnl_nlmsg_put_extra_header(request, sizeof(ifinfomsg));
    mnl_attr_put_u32(request, IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS);
    // A name that does not fit belongs to no device.
    if (!mnl_attr_put_strz_check(request, buffer.size(), IFLA_IFNAME, query.ifname)) {
        return;
    }
    int refusal = 0;
    const int ret = talk(request, read_link, &query, refusal);
    if (ret != NM_OK && refusal != ENODEV) {
        NM_LOG(Error) << "Reading the link failed, ret=" << ret << ". Interface : " << query.ifname;
    }
}

/// Sends one RTM_SETLINK that addresses the device by name: bits of `mask` take their value from `flags`.
int change_flags(const char* ifname, unsigned int mask, unsigned int flags) {
    if (ifname == nullptr) {
        return NM_ERR_NULL_ARG;
    }
    if (mask == 0) {
        return NM_ERR_EMPTY;
    }
    alignas(nlmsghdr) std::array<char, 128> buffer{};
    nlmsghdr* request = mnl_nlmsg_put_header(buffer.data());
    request->nlmsg_type = RTM_SETLINK;
    request->nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
    request->nlmsg_seq = static_cast<uint32_t>(time(nullptr));
    auto* info = static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(request, sizeof(ifinfomsg)));
    info->ifi_family = AF_UNSPEC;
    info->ifi_change = mask;
    info->ifi_flags = flags;
    // A name that does not fit belongs to no device. Cutting it could hit another one.
    if (!mnl_attr_put_strz_check(request, buffer.size(), IFLA_IFNAME, ifname)) {
        return NM_ERR_IOCTL;
    }
    int refusal = 0;
    return talk(request, nullptr, nullptr, refusal);
}

void copy_counters(rtnl_link* link, uint64_t* counters) {
    constexpr std::array kCounters{RTNL_LINK_RX_PACKETS, RTNL_LINK_TX_PACKETS, RTNL_LINK_RX_BYTES,
                                   RTNL_LINK_TX_BYTES,   RTNL_LINK_RX_ERRORS,  RTNL_LINK_TX_ERRORS,
                                   RTNL_LINK_RX_DROPPED, RTNL_LINK_TX_DROPPED};
    std::transform(kCounters.begin(), kCounters.end(), counters,
                   [link](rtnl_link_stat_id_t id) { return rtnl_link_get_stat(link, id); });
}

int set_mtu_by_ioctl(const char* ifname, int mtu) {
    const nm::FileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!socket) {
        NM_LOG(Error) << "Socket open failed.";
        return NM_ERR_SOCKET;
    }
    const nm::Step step("ioctl", "SIOCSIFMTU", ifname);
    ifreq request{};
    strncpy(request.ifr_name, ifname, IFNAMSIZ - 1);
    request.ifr_mtu = mtu;
    if (ioctl(socket.get(), SIOCSIFMTU, &request) != 0) {
        NM_LOG(Error) << "Set MTU[" << mtu << "] failed, Interface : " << ifname;
        return NM_ERR_IOCTL;
    }
    NM_LOG(Debug) << "Set MTU[" << mtu << "] OK, Interface : " << ifname;
    return NM_OK;
}

}  // namespace

int get_iface_flags(const char* ifname, unsigned int* flags) {
    if (ifname == nullptr || flags == nullptr) {
        return NM_ERR_NULL_ARG;
    }
    LinkQuery query{ifname};
    query_link(query);
    *flags = query.flags;
    return NM_OK;
}

int set_iface_flags(const char* ifname, unsigned int flags) {
    return change_flags(ifname, flags, flags);
}

int unset_iface_flags(const char* ifname, unsigned int flags) {
    return change_flags(ifname, flags, 0);
}

int get_iface_mtu(const char* ifname, int* mtu) {
    if (ifname == nullptr || mtu == nullptr) {
        return NM_ERR_NULL_ARG;
    }
    LinkQuery query{ifname};
    query_link(query);
    *mtu = query.mtu;
    return NM_OK;
}

int get_if_mtu(const char* ifname, int* mtu) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(get_iface_mtu(ifname, mtu));
}

int set_if_mtu(char* ifname, int mtu) {
    NM_LOG(Debug) << "Enter";
    int present = 0;
    const int ret = get_if_mtu(ifname, &present);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Get MTU failed.   Interface : " << (ifname != nullptr ? ifname : "");
        return NM_EXIT(ret);
    }
    if (present == mtu) {
        NM_LOG(Debug) << "MTU are the same, don't set MTU. Interface : " << ifname << "   MTU  :" << mtu;
        return NM_EXIT(NM_OK);
    }
    return NM_EXIT(set_mtu_by_ioctl(ifname, mtu));
}

int link_rename(const char* from, const char* to, unsigned int up) {
    if (from == nullptr || to == nullptr) {
        return NM_ERR_NL_ARG;
    }
    bool connected = false;
    const nm::NlSocket socket = nm::open_route_socket(connected);
    if (socket == nullptr) {
        fprintf(stderr, "%s: socket for netlink operation is created failed\n", __func__);
        return NM_ERR_NL_SOCKET;
    }
    if (!connected) {
        fprintf(stderr, "%s: connect socket for route netlink operation failed\n", __func__);
        return NM_ERR_NL_CONNECT;
    }
    nm::RtnlLink link;
    const nm::LinkSearch search = nm::find_link(socket.get(), from, link);
    const nm::RtnlLink change = nm::named_link(to);
    if (search == nm::LinkSearch::Failed || change == nullptr) {
        fprintf(stderr, "%s: Cannot allocate memory for link cache, link object or change object\n",
                __func__);
        return NM_ERR_NOMEM;
    }
    const int ret = unset_iface_flags(from, IFF_UP);
    if (ret != NM_OK) {
        fprintf(stderr, "%s: link down operation failed\n", __func__);
        return ret;
    }
    // A refusal changes nothing: the caller looks at the device.
    const int error =
        search == nm::LinkSearch::Found ? rtnl_link_change(socket.get(), link.get(), change.get(), 0) : 0;
    if (error < 0) {
        nl_perror(error, "Unable to change link");
    }
    if (up == 1 && set_iface_flags(to, IFF_UP) != NM_OK) {
        fprintf(stderr, "%s: link up operation failed\n", __func__);
    }
    return NM_OK;
}

int set_iface_alias(const char* ifname, const char* alias) {
    if (ifname == nullptr) {
        return NM_ERR_NL_ARG;
    }
    bool connected = false;
    const nm::NlSocket socket = nm::open_route_socket(connected);
    if (socket == nullptr) {
        return NM_ERR_SOCKET;
    }
    if (!connected) {
        return NM_ERR_NL_CONNECT;
    }
    const nm::RtnlLink link = nm::named_link(ifname);
    if (link == nullptr) {
        return NM_ERR_NOMEM;
    }
    rtnl_link_set_ifalias(link.get(), alias);
    return NM_OK;
}

int get_iface_rxtx_stats(const char* ifname, uint64_t* counters) {
    if (ifname == nullptr || counters == nullptr) {
        return NM_ERR_NULL_ARG;
    }
    bool connected = false;
    const nm::NlSocket socket = nm::open_route_socket(connected);
    if (!connected) {
        return NM_ERR_SOCKET;
    }
    nm::RtnlLink link;
    const nm::LinkSearch search = nm::find_link(socket.get(), ifname, link);
    if (search == nm::LinkSearch::Failed) {
        return NM_ERR_NOMEM;
    }
    if (search == nm::LinkSearch::Found) {
        copy_counters(link.get(), counters);
    }
    return NM_OK;
}

char* get_iface_name(int ifindex, char* name) {
    return if_indextoname(static_cast<unsigned int>(ifindex), name);
}

int get_iface_index(const char* ifname) {
    return ifname != nullptr ? static_cast<int>(if_nametoindex(ifname)) : 0;
}

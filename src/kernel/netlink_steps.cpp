// What a request to the kernel is called, which device it is about, and how long the kernel takes.
#include "kernel/netlink_steps.h"

#include <linux/if_addr.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netlink/attr.h>
#include <netlink/handlers.h>
#include <netlink/msg.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <string>

namespace {

struct RequestName {
    int type;
    const char* name;
};

constexpr std::array kRequestNames{
    RequestName{RTM_NEWLINK, "RTM_NEWLINK"},   RequestName{RTM_DELLINK, "RTM_DELLINK"},
    RequestName{RTM_GETLINK, "RTM_GETLINK"},   RequestName{RTM_SETLINK, "RTM_SETLINK"},
    RequestName{RTM_NEWADDR, "RTM_NEWADDR"},   RequestName{RTM_DELADDR, "RTM_DELADDR"},
    RequestName{RTM_GETADDR, "RTM_GETADDR"},   RequestName{RTM_NEWROUTE, "RTM_NEWROUTE"},
    RequestName{RTM_DELROUTE, "RTM_DELROUTE"}, RequestName{RTM_GETROUTE, "RTM_GETROUTE"},
    RequestName{RTM_NEWRULE, "RTM_NEWRULE"},   RequestName{RTM_DELRULE, "RTM_DELRULE"},
    RequestName{RTM_GETRULE, "RTM_GETRULE"},
};

/// The request whose answer is read next.
thread_local const char* last_request = "";

const char* request_name(const nlmsghdr* request) {
    const auto* const row =
        std::find_if(kRequestNames.begin(), kRequestNames.end(),
                     [request](const RequestName& known) { return known.type == request->nlmsg_type; });
    return row != kRequestNames.end() ? row->name : "another request";
}

/// rtnetlink(7): four types to a group, and a body of its own for each group.
bool is_about(const nlmsghdr* request, int first_type, size_t body) {
    return (request->nlmsg_type & ~3) == first_type && nlmsg_datalen(request) >= static_cast<int>(body);
}

unsigned int number_of(const nlattr* attribute) {
    return attribute != nullptr ? nla_get_u32(attribute) : 0;
}

unsigned int device_index(nlmsghdr* request) {
    if (is_about(request, RTM_NEWLINK, sizeof(ifinfomsg))) {
        return static_cast<unsigned int>(static_cast<const ifinfomsg*>(nlmsg_data(request))->ifi_index);
    }
    if (is_about(request, RTM_NEWADDR, sizeof(ifaddrmsg))) {
        return static_cast<const ifaddrmsg*>(nlmsg_data(request))->ifa_index;
    }
    const bool is_route = is_about(request, RTM_NEWROUTE, sizeof(rtmsg));
    return is_route ? number_of(nlmsg_find_attr(request, sizeof(rtmsg), RTA_OIF)) : 0;
}

std::string device_name(nlmsghdr* request) {
    const bool is_link = is_about(request, RTM_NEWLINK, sizeof(ifinfomsg));
    nlattr* const name = is_link ? nlmsg_find_attr(request, sizeof(ifinfomsg), IFLA_IFNAME) : nullptr;
    char buffer[IF_NAMESIZE] = {};
    if (name != nullptr) {
        return {nla_get_string(name), strnlen(nla_get_string(name), static_cast<size_t>(nla_len(name)))};
    }
    return if_indextoname(device_index(request), buffer) != nullptr ? buffer : "";
}

int send_in_step(nl_sock* socket, nl_msg* message) {
    nlmsghdr* const request = nlmsg_hdr(message);
    const nm::Step step = nm::exchange_step(request);
    last_request = request_name(request);
    iovec part{request, request->nlmsg_len};
    return nl_send_iovec(socket, message, &part, 1);
}

/// libnl does the work by a set of callbacks in which this one is not.
int receive_in_step(nl_sock* socket, nl_cb* callbacks) {
    const nm::Step step("netlink", "answer", last_request);
    const std::unique_ptr<nl_cb, void (*)(nl_cb*)> plain(nl_cb_clone(callbacks), nl_cb_put);
    if (plain == nullptr) {
        return -NLE_NOMEM;
    }
    nl_cb_overwrite_recvmsgs(plain.get(), nullptr);
    return step.result(nl_recvmsgs_report(socket, plain.get()));
}

}  // namespace

namespace nm {

Step exchange_step(const nlmsghdr* request) {
    const bool is_watched = are_steps_watched();
    return {"netlink", is_watched ? request_name(request) : "",
            is_watched ? device_name(const_cast<nlmsghdr*>(request)) : ""};
}

void watch_exchanges(nl_sock* socket) {
    if (!are_steps_watched()) {
        return;
    }
    const std::unique_ptr<nl_cb, void (*)(nl_cb*)> callbacks(nl_socket_get_cb(socket), nl_cb_put);
    nl_cb_overwrite_send(callbacks.get(), send_in_step);
    nl_cb_overwrite_recvmsgs(callbacks.get(), receive_in_step);
}

}  // namespace nm

// Exchanges with the kernel as steps of a call, for whoever times it (utils/call_watch.h).
#pragma once

#include <linux/netlink.h>
#include <netlink/netlink.h>

#include "utils/call_notes.h"

namespace nm {

/// The step of an exchange that begins with this request, as long as the object lives.
Step exchange_step(const nlmsghdr* request);

/// Makes steps of what goes over the socket, if steps are watched: one of each request, as the kernel works
/// most of them while they are sent, and one of reading each answer.
void watch_exchanges(nl_sock* socket);

}  // namespace nm

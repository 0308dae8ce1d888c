// Single routes of the kernel's routing tables, IPv4 and IPv6 (rtnetlink(7)).
//
// The family is AF_INET or AF_INET6; addresses are raw bytes in network order, 4 or 16 of them by family.
// Every call has its own socket. What went wrong is reported on standard error.
#pragma once

#include <linux/rtnetlink.h>

#include <vector>

#include "kernel/route_table.h"

#pragma GCC visibility push(default)

/// Adds (`add` non-zero) or deletes a route of `table`.
///
/// dst       null for the default route. With a `prefix` the host bits are cleared; with prefix 0 the route
///           leads to this one host, not anywhere.
/// gw        next hop, null for an on-link route
/// ifindex   output device, 0 to leave it to the kernel
/// protocol  who made it (RTPROT_STATIC); looked at when adding only: a delete hits static routes alone
/// scope     RT_SCOPE_UNIVERSE or RT_SCOPE_LINK
/// metric    priority, looked at when adding only; 0 is the family's default
///
/// A default route that is added carries the MTU of its device, locked, so that path MTU discovery doesn't
/// lower it. NM_ERR_BAD_FORMAT for another family or a prefix beyond its length; NM_ERR_NOMEM;
/// NM_ERR_NL_CONNECT; NM_ERR_NL_ROUTE_ADD, also for a route that exists; NM_ERR_NL_ROUTE_DELETE, also for
/// one that does not.
int set_route(RT_ID table, unsigned char family, void* dst, unsigned char prefix, void* gw,
              unsigned int ifindex, unsigned char protocol, unsigned char scope, unsigned int metric,
              unsigned char add);

/// Deletes all routes of the table, whoever made them; stops at the first that the kernel keeps and returns
/// libnl's (negative, small) error then. NM_ERR_BAD_FORMAT for another family; NM_ERR_NOMEM;
/// NM_ERR_NL_CONNECT.
int flush_route_table(unsigned char family, RT_ID table);

#pragma GCC visibility pop

namespace nm {

/// A static route to add, as set_route() takes it.
struct NewRoute {
    unsigned char family;
    const void* dst;
    unsigned char prefix;
    const void* gw;
    unsigned int ifindex;
    unsigned int metric;
    unsigned char scope = RT_SCOPE_UNIVERSE;
};

/// set_route() for one that is added.
int add_route(RT_ID table, const NewRoute& route);

/// Whether the table has these routes and no others, as add_route() would write them now, in all that the
/// kernel says of a route; with an `ifindex`, whether that is so of those that lead out of this device. False
/// also where the kernel cannot be asked.
bool has_only_routes(RT_ID table, unsigned char family, const std::vector<NewRoute>& routes,
                     unsigned int ifindex = 0);

/// Adds routes with a destination to a table by few requests on one socket. `added` says of each whether the
/// kernel took it; what it refuses is reported on standard error and ends nothing. NM_ERR_BAD_FORMAT for a
/// family or prefix that is none, before anything is sent; NM_ERR_NL_CONNECT.
int add_routes(RT_ID table, const std::vector<NewRoute>& routes, std::vector<bool>& added);

/// Stores how many next hops of the table's routes lead out of the device. Codes as flush_route_table().
int count_device_routes(RT_ID table, unsigned char family, unsigned int ifindex, unsigned int& count);

}  // namespace nm

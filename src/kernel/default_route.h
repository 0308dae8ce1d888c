// The default routes of all uplinks, which share one table and differ in device and metric. What went wrong
// is reported on standard error.
#pragma once

namespace nm {

/// Adds the uplink's default route; `gw` is the text of an address of either family. NM_ERR_NULL_ARG without
/// a gateway; NM_ERR_BAD_FORMAT for no address; set_route()'s codes.
int add_default_route(unsigned int ifindex, const char* gw, unsigned int metric);

/// Removes one default route of the uplink. set_route()'s codes.
int delete_default_route(unsigned int ifindex, unsigned char family);

/// Removes all of them, whatever their metrics; none is no failure. The codes of read_policy() and of
/// delete_default_route().
int clear_default_routes(unsigned int ifindex, unsigned char family);

/// Whether the uplink has this IPv6 default route, as add_default_route() would write it now, and no other;
/// without a gateway, whether it has none.
bool has_only_default_route6(unsigned int ifindex, const char* gw, unsigned int metric);

}  // namespace nm

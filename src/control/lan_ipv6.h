// LANs that follow the IPv6 of their uplink: another delegated prefix renumbers them, and an uplink that
// comes or changes renews their source routing. docs/ipv6.md tells the whole story.
//
// Both lock one LAN after the other and then, for its source routing, the uplink: the caller must have
// released the lock of the uplink and those of its downlinks, or it waits ten seconds for itself.
#pragma once

#include <string>
#include <vector>

#pragma GCC visibility push(default)

/// Renumbers the LANs of the stored device document that are numbered from the prefix of this uplink:
/// `new_prefix` is "<prefix>/<length>", `uplink_ifname` the uplink's device or session. Each LAN is altered
/// from its stored state to the new one, and its old prefix is withdrawn by advertisement; then the new
/// addresses are stored. A LAN that has them already is left alone. One whose lock cannot be had keeps its
/// old prefix, in the document as well, so that the next call renumbers it: NM_ERR_LOCK. 0, or the first
/// failure: the codes of reading and writing the document, NM_ERR_NO_IFACE for an uplink that is no port's,
/// NM_ERR_BAD_IP and NM_ERR_BAD_PREFIX (also for a LAN whose subnet has no place in the new prefix), those of
/// _setup_laninfo().
int reconfig_pd_downlinks(std::string uplink_ifname, std::string new_prefix);

/// Renews what the LANs of the document at `path` have from their uplink, or those behind the port `uplink`
/// alone: LanIfaceInfo::resume_ipv6() for each, and one start of the advertisements. What boot has left out,
/// and what was skipped while an uplink was away or locked, is made up for. 0, or the first failure: the code
/// of reading the document, NM_ERR_LOCK, those of resume_ipv6().
int reload_lan_ipv6(std::string path, std::string uplink);

/// The same for these LANs (device names) alone.
int renew_lan_ipv6(const std::string& path, const std::vector<std::string>& lans);

#pragma GCC visibility pop

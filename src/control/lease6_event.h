// What the DHCPv6 and SLAAC client of a WAN port reports: a lease has come, has changed or has gone, or the
// routers of the link have.
//
// dhcpcd waits for its hook (platform/units/dhcpcd-event), and whoever stops it waits for dhcpcd under the
// lock of the port. So an event has two halves, both called by nm_bin: the hook's own half notes what there
// is now in the record of the port and never waits for that lock; the other half runs in the background and
// sets the device up with what the record says by then. So it does not matter in which order or how often the
// second halves run, and one that was killed is made up for by the next report.
//
// The report is in the environment, as dhcpcd-run-hooks(8) tells and services/dhcpcd/client_report.h reads
// it. Routers and servers of a foreign network choose the values.
#pragma once

#pragma GCC visibility push(default)

/// One half of an event of the client on the interface `ifname` (of a session: its own, "ppp-swdev1").
///
/// act "report"  Notes the report of the environment in the record of the port. 1 if the device has to be set
///               up anew; 0 if it has all of it already, and for a port whose client is not meant to run;
///               the codes of change_ipv6_record().
/// act "apply"   Sets the port up with what the record says, under its lock, which is waited for some
/// minutes.
///               Then, after that lock and those of the downlinks are released, LANs are renumbered from a
///               delegated prefix that is new. 0, also for a port whose client was ended meanwhile;
///               NM_ERR_LOCK; NM_ERR_BAD_TYPE if no document has the port as the client's; the codes of
///               dhcp6_source_route_cb() and reconfig_pd_downlinks().
///
/// NM_ERR_NULL_ARG for null or an empty name; NM_ERR_BAD_ACT.
extern "C" int Lease6_event(char* ifname, char* act);

#pragma GCC visibility pop

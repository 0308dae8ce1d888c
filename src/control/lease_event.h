// What a DHCP client or a PPPoE session reports: a lease has come, has changed or has gone.
//
// dhclient's hook (platform/units/dhclient-event) calls the entry for every event of a lease, pppd's
// (platform/vpppoe/link-event) when a session's address comes and goes; both by nm_bin, so in a process of
// their own with what they were given in its environment:
//
//   dhclient  reason, pid, new_ip_address, new_subnet_mask, new_routers, new_domain_name_servers,
//             new_dhcp_server_identifier; the same as old_... of the lease before (dhclient-script(8));
//             CONF, the path of the document that the client was started for
//   pppd      when a session has ended: IPLOCAL and IPREMOTE (pppd(8)), and IFINDEX of the session's
//   interface.
//             A session that is up is asked for by vpppoe.h.
//
// The servers of a foreign network choose these values: what is not an IPv4 address counts as absent.
#pragma once

#pragma GCC visibility push(default)

/// Works one event of the port with the device `ifname` under its lock: `act` is "add" or "del".
///
/// A DHCP lease is put on the device (a session's address is pppd's own doing). A WAN port's routes, rules,
/// sets, peers (dhcp_source_route_cb() of its addressing side) and name servers follow; a configured
/// `IP4_DNS` stands in for the lease's. What another lease left behind is taken away first, and a renewal
/// that changes nothing does nothing. A LAN port has nothing but the address.
///
/// Nobody repeats an event, so a setup that holds the lock is waited for some minutes. A stored document that
/// does not know the client yet is waited for some seconds, unless the one at `CONF` does. An event is
/// dropped, with 0, if its reporter was ended or its session has gone while it waited. The end of a session
/// is worked whatever the documents say: what a running session or the port's own addressing does not use
/// goes.
///
/// 0; NM_ERR_NULL_ARG for null or an empty name; NM_ERR_BAD_ACT; NM_ERR_LOCK; NM_ERR_BAD_TYPE for a new lease
/// of a port that is not configured for it; NM_ERR_EMPTY for one without address or netmask, NM_ERR_BAD_IP
/// for an address that no device can have; NM_ERR_NO_IFACE; the codes of building the port's object, of
/// set_ipv4_addr() and of dhcp_source_route_cb().
extern "C" int Lease_event(char* ifname, char* act);

#pragma GCC visibility pop

// Policy routing of an uplink: its own table and its block of rules, both numbered by its interface index
// (route_table.h). Packets reach the table by their source address, by the device that their socket is bound
// to, or by a firewall mark (rule.h).
//
// The actions `act` are the kernel's message types: RTM_NEWRULE (32), RTM_DELRULE (33), RTM_NEWROUTE (24),
// RTM_DELROUTE (25). VLAN devices of a switch port share the table and the block of their parent, see
// get_pure_ifname(); next hops and device rules name the device itself. Nothing is rolled back: what was
// written before a failure stays, and the next setup wipes it.
//
// Codes of the functions that take texts: NM_ERR_NULL_ARG without an index or a needed address;
// NM_ERR_BAD_FORMAT for another action, family, or an index of 65280 and more; NM_ERR_BAD_IP;
// NM_ERR_BAD_PREFIX; NM_ERR_NO_IFACE for an index without a device; otherwise those of route.h and rule.h.
// An address of zeroes counts as absent; of an IPv6 address only the first byte is looked at ("::1" is
// absent).
#pragma once

#include <cstdint>
#include <string>

#include "kernel/route_table.h"

#pragma GCC visibility push(default)

/// set_ip_rule() for IPv4, and for IPv6 with the name for the device rule.
int set_ip4_rule(unsigned int ifindex, const char* ip, unsigned char act, int mark);
int set_ip6_rule(unsigned int ifindex, const char* ip, unsigned char act, int mark, const char* ifname);

/// set_ip_route() for IPv4 (metric 0) and IPv6.
int set_ip4_route(unsigned int ifindex, const char* ip, unsigned char prefix, const char* gw,
                  unsigned char act);
int set_ip6_route(unsigned int ifindex, const char* ip, unsigned char prefix, const char* gw,
                  unsigned int metric, unsigned char act);

/// Writes the rule block of the uplink with the address `ip`, or deletes all rules that lead to its table.
/// `mark` non-zero: firewall marks assign packets to this uplink. `ifname` names the device of the device
/// rule and gives the port number of the marks; null or, by rule, the name of `ifindex`.
int set_ip_rule(unsigned int ifindex, unsigned char family, const char* ip, uint8_t act, int mark,
                const char* ifname);

/// Adds the default route by `gw` (if there is one) and the route to the uplink's own network `ip`/`prefix`
/// to its table, or flushes the table, whatever else is given.
int set_ip_route(unsigned int ifindex, unsigned char family, const char* ip, uint8_t prefix, const char* gw,
                 unsigned int metric, uint8_t act);

/// Empties the table of the interface and deletes the rules that lead to it. The result is that of the rules
/// alone: a table that can't be flushed must not make their removal look like a failure.
int delete_routerule(const char* ifname, int ifindex, unsigned char family);

/// Table and rules of a LAN-side IPv6 prefix whose traffic leaves by another interface: wipes what `ifindex`
/// has (and, for a VLAN device on a switch port, what its parent has), and with `act` 1 writes its rules, the
/// on-link route to ip/prefix, and the default route by `gw` on `oif_ifindex`; `act` 0 leaves it at the
/// wiping. The numbers are those of `ifindex` itself.
int set_ip6_routerule_by_oifindex(unsigned int ifindex, unsigned int oif_ifindex, const char* ip,
                                  unsigned int prefix, const char* gw, unsigned char act, int mark);

/// The rule block at `pref_base`: source rule for `addr` (raw bytes), device rule, and, for a name with a
/// port number, the rules for the marks of NAT answers (with `mark`) and of LAN traffic. All are tried; the
/// first failure is the result. `add` other than 1 deletes all rules that lead to `table`.
int set_source_rule(unsigned int ifindex, unsigned char family, void* addr, unsigned char prefix, int add,
                    int mark, const char* ifname, RT_ID table, unsigned int pref_base);

/// The two routes of set_ip_route() with raw addresses. NM_ERR_NULL_ARG when adding without `addr`.
int set_source_route(unsigned int ifindex, unsigned char family, void* addr, unsigned char prefix, void* gw,
                     unsigned int metric, int add, RT_ID table);

/// The two routes of set_ip6_routerule_by_oifindex() with raw addresses; without `add` flushes the table.
int set_ip6_oif_route(unsigned int ifindex, void* addr, unsigned char prefix, unsigned int oif_ifindex,
                      void* gw, int add);

#pragma GCC visibility pop

namespace nm {

/// What set_ip_rule() and set_ip_route() write for an uplink.
struct SourceRouting {
    unsigned int ifindex;
    const char* ip;
    unsigned char prefix;
    const char* gw;
    unsigned int metric;
    int mark;
    const char* ifname = nullptr;
};

/// Whether table and rules of the uplink are exactly what would be written now. Then they are better left
/// alone: between wiping and writing, packets find no route. False also for what cannot be written.
bool is_source_routed(unsigned char family, const SourceRouting& wanted);

/// What set_ip6_routerule_by_oifindex() writes for a LAN-side prefix.
struct DownlinkRouting {
    unsigned int ifindex;
    unsigned int oif_ifindex;
    const char* ip;
    unsigned int prefix;
    const char* gw;
    int mark;
};

/// is_source_routed() for a LAN-side prefix.
bool is_downlink_routed(const DownlinkRouting& wanted);

/// set_ip6_routerule_by_oifindex() to add, but nothing where all is as wanted.
int route_downlink(const DownlinkRouting& wanted);

/// delete_routerule() for a session's interface that may be gone by now: rules outlive it. `ifindex` is the
/// index that it had.
int delete_session_routerule(const std::string& ifname, int ifindex, unsigned char family);

}  // namespace nm

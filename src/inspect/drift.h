// Drift: what the running system has otherwise than the stored documents describe.
#pragma once

#include <json/value.h>

#include <functional>

#pragma GCC visibility push(default)

/// What a boot does beside migrations and the bring-up: before the first port is up, and when all are. Each
/// returns 0 or the code of what failed.
struct boot_steps {
    std::function<int()> begin;
    std::function<int()> finish;
};

/// Boots from the stored documents in a copy of this device that has nothing but its hardware (rehearsal.h
/// says what a copy is), with the leases and sessions that the device has, and compares the outcome with the
/// running system. Nothing is changed, and no service is called. This process should have no other thread.
///
/// `report` becomes an object (drift.json in /usr/share/networkmanagement/schema/): `findings`, each with its
/// domain (link, address, route, rule, set, chain, setting, condition, file, unit), name, owner by design,
/// the lines that are `missing` and those that are `extra`, and a class:
///   "lost"     described, and missing
///   "changed"  described, and there with other values
///   "foreign"  not described, in a range or under a name that is ours by design
/// `outside`, in the same form, what is not described and not ours, such as the chains of other programs;
/// `unread`, what could not be compared, and why: a document that cannot be set up, a lease or a record that
/// cannot be read, units that cannot be listed, what changed meanwhile, a boot that is not over. Secrets are
/// masked.
///
/// What moves by itself is not compared: members of sets that daemons fill, values of conditions but for
/// single_wan_condition, what daemons write, IPv6 link-local addresses, neighbours, counters, documents
/// themselves, the units of the boot; nor is what a relay of IPv6 adds while it is described: its rules,
/// routes and members of ip6_relayed.
///
/// Of the settings of the whole device, those that no set-up writes are as they are on the device, on both
/// sides. Those of single devices are compared with what a new device has, where the two differ, but not
///   - where both follow that of all devices, or one side lacks the setting;
///   - ipv6/conf/DEVICE/mtu and hop_limit, ipv4/conf/DEVICE/accept_redirects, and addr_gen_mode of sessions;
///   - ipv6/conf/DEVICE/* and promote_secondaries of a device with a DHCPv6 or SLAAC client;
///   - with a relay of IPv6, all of proxy_ndp, and forwarding of its LAN;
///   - those of neighbour tables, and net.ipv4.conf.all.forwarding, which ip_forward is too.
///
/// 0 without findings, whatever lies outside; NM_ERR_BAD_VALUE with some; NM_ERR_NOT_FOUND, whatever was
/// found, if something could not be compared; NM_ERR_NULL_ARG if a step is missing.
int report_drift(const boot_steps& boot, Json::Value& report);

#pragma GCC visibility pop

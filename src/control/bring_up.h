// Bring-up: the whole stored configuration becomes the state of the device in one run, as at boot. All
// devices come before all addressing; what depends on the set of uplinks and the DHCP services of the LANs
// follow.
//
// Nothing is asked of the present state: a run over a device that is up leaves it as it is, and one after a
// run that was killed completes it.
#pragma once

#include <cstdint>

#pragma GCC visibility push(default)

/// A step of bring-up that has ended: one port, interface or group of parameters, or one piece of work for
/// the whole device.
struct bring_up_step {
    /// What was set up ("setup_wanif: ", ...), as it stands in the log.
    const char* label;
    /// The member of the document that was set up, the section or the path of the document if that is what
    /// could not be read; empty for work on the whole device.
    const char* key;
    /// 0 or positive, or a code of result_codes.h.
    int result;
    /// How long it took.
    uint64_t microseconds;
    /// Whether the result of the run may be this one.
    bool counts;
};

/// Is called after each step, in the order of the run; `data` is the caller's own pointer.
typedef void (*bring_up_report)(const bring_up_step* step, void* data);

/// Adds all that the stored documents hold. `opt` is joined with each step's own mask and normally 0. A
/// failing step is logged with its label and key, and the others are worked all the same. On models whose LAN
/// ports are devices of their own, the VLAN segments are left out.
///
/// 0, or the last code among the ports, interfaces, parameters, DHCP services and documents; work that
/// depends on the set of uplinks, the device snapshot and the health manager are not looked at, as after a
/// single request. A document of DHCP services that is absent is logged and counts as one without services; a
/// device document that is not an object is NM_ERR_BAD_FORMAT. One request in what it waits for the services
/// of the bus (90 seconds in all).
extern "C" int setup_all_iface_by_config(uint32_t opt);

/// The same, reporting each step.
int setup_all_iface_by_config(uint32_t opt, bring_up_report report, void* data);

#pragma GCC visibility pop

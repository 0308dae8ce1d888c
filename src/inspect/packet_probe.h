// A packet that is really sent, in a copy of the device, and what becomes of it there.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "inspect/packet_flow.h"
#include "kernel/packet_trace.h"

namespace nm {

/// Where the packet comes from: the device itself, or the far end of a cable.
struct Entrance {
    bool is_local = false;
    std::string device;  ///< that takes it in: of a bridge's member the bridge
    std::string cable;   ///< whose far end sends it
    uint32_t cable_index = 0;
    std::vector<uint32_t> tags = {};  ///< 802.1Q or 802.1ad, the outer one first: protocol and VLAN
};

/// Chooses it, for the devices as `ip -details addr` has them. What stands in the way, empty if nothing does.
std::string find_entrance(const Json::Value& devices, const packet_question& question, const Flow& flow,
                          Entrance& entrance);

/// What has been seen.
struct Probe {
    bool is_traced = false;        ///< the rest of what the trace says counts
    std::string trace_fault = {};  ///< why there is no trace, or not all of it
    TraceEvents events = {};
    bool has_left = false;
    std::string left = {};                         ///< the packet from its IP header on, as it came out
    uint32_t left_cable = 0;                       ///< index of the device whose cable it came out of
    int send_error = 0;                            ///< of a local program's call
    std::map<std::string, int64_t> counters = {};  ///< of the kernel, by how much they have grown
};

/// For the play of a rehearsal, in the copy: sends the packet, answers for every next hop, and waits until
/// the packet has come to its end. Throws std::runtime_error where that cannot be done.
Probe send_packet(const Flow& flow, const Entrance& entrance);

}  // namespace nm

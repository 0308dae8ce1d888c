// The layout of the 32-bit packet mark, which is the connection mark as well: one table for all of packet
// policy, since every chain works on the same bits. A rule sets or matches its field under the field's mask
// only and leaves the others alone. Bits that no field covers are free.
#pragma once

#include <cstdint>

namespace nm {

/// One field of the mark: a value goes in shifted left, and covers the bits of the mask.
struct MarkField {
    uint32_t mask;
    unsigned shift;
};

/// Number of the port by which the packet leaves, 1 to 15; 0 means that none is chosen yet. Set by steering
/// rules and load balancing.
constexpr MarkField kEgressPort{0xf, 0};
constexpr uint32_t kMaxEgressPort = 15;

/// QoS class (`GROUP`), set by policy rules.
constexpr MarkField kQosClass{0x3c0, 6};

/// Verdict of the firewall rules; 0 means that no rule has met the packet.
constexpr MarkField kVerdict{0xc00, 10};
constexpr uint32_t kVerdictAllow = 0x400;
constexpr uint32_t kVerdictDeny = 0x800;

/// Replies of connections that a port forwarding brought in, always together with their egress port.
constexpr uint32_t kDnatReply = 0x1000;
constexpr uint32_t kDnatReplyMask = kDnatReply | kEgressPort.mask;

/// Connections that the balancing of LAN traffic gave an uplink, always together with their egress port. The
/// base rules also give it to packets with no port, which the main table and static routes shall lead first.
constexpr uint32_t kLanToWan = 0x2000;
constexpr uint32_t kLanToWanMask = kLanToWan | kEgressPort.mask;

/// `AID` and `CID` of a connection. They are only matched here; others write them.
constexpr MarkField kAid{0x03ff0000, 16};
constexpr MarkField kCid{0xfc000000, 26};

/// `value` as it stands in the field.
constexpr uint32_t marked(const MarkField& field, uint32_t value) {
    return value << field.shift;
}

static_assert((kEgressPort.mask ^ kQosClass.mask ^ kVerdict.mask ^ kDnatReply ^ kLanToWan ^ kAid.mask ^
               kCid.mask) == 0xffff3fcf,
              "every bit has one owner");

}  // namespace nm

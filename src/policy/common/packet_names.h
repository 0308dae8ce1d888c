// Names of the chains and sets that the rule sets fill. The base rules lay the chains; sets with a number or
// a key behind their name are made where they are needed.
#pragma once

namespace nm {

/// Chains of the table mangle. Those of segments have "-" and the segment's key behind the first three.
constexpr const char* kVerdictChain = "FIREWALL";
constexpr const char* kClassChain = "POLICY";
constexpr const char* kSteeringChain = "STEER";
constexpr const char* kSiteBalanceChain = "S2SLB";
constexpr const char* kPlainSiteBalanceChain = "S2SLB_WITHOUT_MPLS";
constexpr const char* kLanBalanceChain = "WANLB";
constexpr const char* kReplyMarkChain = "DNATPREROUTING";

/// A chain of the table nat.
constexpr const char* kForwardChain = "PORT_FORWARDING";

/// What stands before the key of a segment ("seg-guests"), the number of a host name's or a forward's set,
/// and the name of a client system.
constexpr const char* kSegmentSets = "seg";
constexpr const char* kHostnameSets = "HOSTNAME";
constexpr const char* kForwardSets = "DNAT";
constexpr const char* kClientSystemSets = "os.";

/// How many sets of host names there can be.
constexpr int kMostHostnameSets = 2048;

}  // namespace nm

// Load balancing over the live uplinks: traffic between sites (chain S2SLB) and from LAN to WAN (chain WANLB)
// is spread in proportion to the ports' rates. The choice is made once for each connection and kept in the
// connection mark (kernel/marks.h). Whether a port is alive is asked of the netfilter match `condition`,
// which has the interface's name, in WANLB with "_ncsi" behind it; the link monitors set these conditions.
//
// A port takes part if it has an `INTERFACE`, a `PRIO` and a rate (`TX_RATE`, or `ISP_BW` where there is no
// such text) other than 0. Its number is the one behind "swdev" or "eth" in the interface's name.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>
#include <vector>

#pragma GCC visibility push(default)

/// A port that takes part. `rate` is a weight in bits per second. Ports of equal `prio` have no order.
struct load_balance_if {
    std::string interface;
    int32_t prio;
    uint64_t rate;

    bool operator<(const load_balance_if& other) const { return prio < other.prio; }
};

/// Rebuild the chains, in the mangle tables, from the device document at `path`: S2SLB and
/// S2SLB_WITHOUT_MPLS from `WAN_PORT` and `PRIVATE_PORT`, for IPv4 and (S2SLB, WAN ports alone) IPv6; WANLB
/// from `WAN_PORT`. The chains have to be there; what cannot be loaded leaves the old rules. Then the monitor
/// reloads its conditions, and what that gave is the result, even after a set of rules that failed.
///
/// 0; the code of reading the document; NM_ERR_EMPTY without a WAN port that takes part; the code of the
/// call; NM_ERR_PARSE; NM_ERR_RELOAD if the monitor answers an error.
int setup_site_to_site_load_balance(std::string path);
int setup_lan_to_wan_load_balance(std::string path);

/// Sets the condition single_wan_condition to whether the document at `path` has at most one WAN port,
/// whatever its state. 0; NM_ERR_OPEN if there is no such condition or it cannot be written; the code of
/// reading the document.
int setup_local_single_wan_nf_condiftion(std::string path);

#pragma GCC visibility pop

namespace nm {

/// What stands behind an interface's name in the name of the condition by which WANLB knows whether it is
/// alive.
constexpr const char* kLanBalanceCondition = "_ncsi";

/// The WAN ports of a document that take part.
std::vector<load_balance_if> balanced_uplinks(const Json::Value& document);

}  // namespace nm

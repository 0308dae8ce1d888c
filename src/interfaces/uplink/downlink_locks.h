// The owner of the locks of an uplink's downlinks.
#pragma once

#include <vector>

#include "interfaces/uplink/WanIfaceInfo.h"

namespace nm {

/// Holds the downlinks' locks for a scope and gives each back at its end, on every path. None may be asked
/// for again before: two locks of one process exclude each other.
class DownlinkLocks {
public:
    DownlinkLocks() = default;
    DownlinkLocks(const DownlinkLocks&) = delete;
    DownlinkLocks& operator=(const DownlinkLocks&) = delete;
    ~DownlinkLocks();

    void take(WanIfaceInfo& uplink) { uplink.get_ipv6_downlink_lock(held_); }
    std::vector<downlink_lock_info>& held() { return held_; }
    const std::vector<downlink_lock_info>& held() const { return held_; }

private:
    std::vector<downlink_lock_info> held_;
};

}  // namespace nm

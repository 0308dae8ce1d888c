// Router advertisements (RFC 4861, RFC 8106) on the LANs: a block for each interface, and one daemon, the
// unit nm-radvd, on the file that is assembled from all blocks.
//
//     /var/run/network/ipv6/<ifname>.radvd.conf    an interface's block (radvd.conf(5))
//     /etc/radvd.conf                              all blocks, what the daemon reads
//
// A prefix that an interface has advertised before stays in its block with both lifetimes 0, until its
// clients cannot hold it any more (withdrawn.h).
//
// A block is replaced in one step, so that a failure leaves the old one whole. Values are data: one that
// could end a statement of the daemon's file is refused. The assembled file is written under flock(1) on
// itself: it holds all blocks that exist when it is rebuilt last.
#pragma once

#include <cstdint>
#include <string>

#pragma GCC visibility push(default)

/// What is to be advertised on an interface. Lifetimes are in seconds.
struct radvd_iface {
    bool managed = false;  // clients ask DHCPv6 for their addresses and make none of their own
    bool other = false;    // clients ask DHCPv6 for the rest
    std::string ifname;
    std::string dns;  // name servers, separated by blanks; empty for none
    std::string prefix;
    int32_t prefix_len = 0;
    uint32_t router_lifetime = 0;
    uint32_t preferred_lifetime = 0;  // of the prefix; 0 for the daemon's default
    uint32_t valid_lifetime = 0;      // of the prefix; 0 for the daemon's default
};

/// Writes the interface's block; the daemon's file stays as it is. 0; NM_ERR_NULL_ARG; NM_ERR_NO_IFACE
/// without a name; NM_ERR_BAD_FORMAT for a value that could leave its statement; NM_ERR_OPEN; NM_ERR_WRITE;
/// the codes of the lock.
int radvd_iface_set(const radvd_iface* iface);

/// Removes the interface's block and rebuilds the daemon's file from those that are left, or empties it; the
/// daemon goes on with what it has read. 0, also if there is no block to remove, which rebuilds nothing;
/// NM_ERR_NO_IFACE without a name; NM_ERR_BAD_FORMAT for a name that is none; the exit code of the rebuilding
/// command.
int radvd_iface_unset(std::string ifname);

/// Whether the interface has a block.
bool radvd_iface_exist(std::string ifname);

/// Rebuilds the daemon's file and restarts the unit; without any block nothing is done. 0; the exit code of
/// the rebuilding command; the codes of service_restart().
int radvd_service_start();

/// Stops the unit. The codes of service_stop().
int radvd_service_stop();

#pragma GCC visibility pop

namespace nm {

/// Has the daemon read the blocks: starts it anew, or stops it if there is none. While a hold stands in this
/// thread, that is left to the end of the hold: 0. Otherwise the codes of radvd_service_start() and
/// radvd_service_stop().
int refresh_radvd();

/// Keeps refresh_radvd() until the last hold of the thread ends. Each start of the daemon takes the default
/// route away from the clients of all LANs for a moment, so whoever changes several blocks holds it.
class RadvdHold {
public:
    RadvdHold();
    ~RadvdHold();
    RadvdHold(const RadvdHold&) = delete;
    RadvdHold& operator=(const RadvdHold&) = delete;

    /// Ends the hold now. 0, or the code of the refresh that was due.
    int release();

private:
    bool is_held_ = true;
};

}  // namespace nm

// What nf_tables reports of the packets that a rule with the target TRACE has met (iptables-extensions(8)):
// each rule that matched, each return and policy, in their order. For iptables on nf_tables only.
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <string>
#include <vector>

#include "kernel/netlink.h"

namespace nm {

enum class TraceKind { Rule, Return, Policy };

/// One report. `verdict` is a number of linux/netfilter.h (NF_DROP, NF_ACCEPT) or of
/// linux/netfilter/nf_tables.h (NFT_CONTINUE, NFT_JUMP, ...), `mark` that of the packet behind the rule.
/// Devices and headers come with the first report of each base chain.
struct TraceEvent {
    TraceKind kind = TraceKind::Rule;
    uint32_t id = 0;
    std::string table;
    std::string chain;
    uint64_t handle = 0;
    int verdict = 0;
    std::string target;  ///< the chain of a jump
    uint32_t mark = 0;
    bool has_packet = false;
    uint32_t in = 0;
    uint32_t out = 0;
    std::string network_header;
    std::string transport_header;
};

using TraceEvents = std::vector<TraceEvent>;

/// The report in a message of nfnetlink; false for any other message, and for one that is cut.
bool parse_trace(const nlmsghdr* message, TraceEvent& event);

/// Hears the reports of the network namespace that it is opened in.
class PacketTrace {
public:
    /// Null inside, which `is_open` says, where the kernel has no such reports.
    PacketTrace();
    bool is_open() const { return socket_ != nullptr; }
    int fd() const;

    /// Appends what has come. False if some of it was lost.
    bool read(TraceEvents& events);

private:
    MnlSocket socket_;
};

/// The kernel's numbers of the rules of a chain, in their order. `family` is NFPROTO_IPV4 or NFPROTO_IPV6.
/// False if they cannot be read, as with iptables of the older kind.
bool read_rule_handles(uint8_t family, const std::string& table, const std::string& chain,
                       std::vector<uint64_t>& handles);

}  // namespace nm

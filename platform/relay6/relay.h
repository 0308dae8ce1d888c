// One LAN that shares the prefix of an uplink: the hosts of either side find those of the other. The kernel
// answers neighbour solicitations for hosts of the other side (its NDP proxy) and has a route to each host of
// the LAN; the relay learns from the kernel's neighbours which hosts there are, and has it look for those
// that somebody asks for. A relay of everything hands on router advertisements and DHCPv6 messages as well.
#pragma once

#include <array>
#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "icmp6.h"
#include "kernel_tables.h"
#include "sockets.h"

namespace relay6 {

using Clock = std::chrono::steady_clock;

/// Lets so many events through in a burst, and so many a second in the long run.
class Bucket {
public:
    Bucket(double burst, double rate) : burst_(burst), rate_(rate), level_(burst) {}
    bool take();

private:
    double burst_, rate_, level_;
    Clock::time_point filled_ = Clock::now();
};

enum class Mode { Neighbors, All };
enum Side : std::size_t { kUp = 0, kDown = 1 };

inline Side opposite(Side side) {
    return side == kUp ? kDown : kUp;
}

struct Port {
    std::string name;
    unsigned int index = 0;
    Socket tap;   ///< neighbour messages
    Socket icmp;  ///< router messages, and advertisements of neighbours that somebody waits for
    Socket dhcp;
};

class Relay {
public:
    Relay(Mode mode, std::array<Port, 2> ports, std::unique_ptr<KernelTables> tables,
          std::unique_ptr<KernelEvents> events);

    /// Opens the sockets of a device; false after a message. Needs privileges, all that follows only
    /// CAP_NET_ADMIN.
    static bool open_port(Mode mode, Side side, Port& port);

    /// Works until `signals` becomes readable, or one of the devices is gone. False for the latter.
    bool run(int signals);

    /// Takes back what is in the kernel, and what hosts were told of us.
    void end();

private:
    struct Asked {
        Side side;
        in6_addr source;  ///< unspecified: all hosts of the side are to know
        in6_addr target;
        Clock::time_point when;
    };

    /// A descriptor, -1 for none, and what is done when it is readable.
    struct Source {
        int fd;
        std::function<void()> work;
    };

    std::vector<Source> sources();
    void read_events();
    void refresh();
    void refresh_locals(const std::vector<LocalAddress>& addresses);
    void forget_strangers();
    void hear_neighbors(Side side);
    void hear_neighbor(Side side, const NeighborMessage& message);
    void hear_router();
    void hear_router_solicitation();
    void hear_dhcp_client();
    void hear_dhcp_server();
    void solicit_router();
    void hand_on_advertisement();
    void notice(const Neighbor& neighbor);
    void learn(const in6_addr& address, Side side);
    void forget(const in6_addr& address);
    void answer_askers(const in6_addr& address, Side side);
    void look_for(const in6_addr& address, Side side);
    void look_after_hosts();
    void work_by_time();
    bool is_shared(const in6_addr& address) const;
    bool is_local(const in6_addr& address) const { return locals_.count(address) > 0; }
    int milliseconds_to_wait() const;

    Mode mode_;
    std::array<Port, 2> ports_;  ///< by Side
    std::unique_ptr<KernelTables> tables_;
    std::unique_ptr<KernelEvents> events_;
    unsigned int uplink_table_;
    std::map<in6_addr, Side, AddressOrder> hosts_;
    std::map<in6_addr, Side, AddressOrder> locals_;
    std::vector<Prefix> own_prefixes_;        ///< of the addresses of both devices
    std::deque<Prefix> advertised_prefixes_;  ///< of the router, the latest last
    std::deque<Asked> asked_;
    in6_addr link_address_{};  ///< by which a DHCPv6 server knows the link
    Bytes last_advertisement_;
    Bucket advertisements_, solicitations_, searches_, messages_;
    int solicitations_left_;
    Clock::time_point next_solicitation_ = Clock::now();
    Clock::time_point next_look_;
    bool stale_ = true;  ///< what the kernel has is to be read anew
    bool gone_ = false;
};

/// The routing table of an uplink: that of its parent for a VLAN device of a switch port.
unsigned int uplink_table(const std::string& ifname);

}  // namespace relay6

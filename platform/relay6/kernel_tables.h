// What the relay has in the kernel: routes to hosts, addresses that the kernel answers for (its own NDP
// proxy), rules that lead the downlink's packets to the table of the uplink; and what the kernel knows:
// addresses, neighbours. All that is written is marked as ours, so that a later process can take away what a
// killed one has left.
#pragma once

#include <libmnl/libmnl.h>
#include <netinet/in.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace relay6 {

struct LocalAddress {
    unsigned int ifindex;
    unsigned int prefix;
    in6_addr address;
    bool usable;  ///< nobody else has turned out to have it
};

enum class Reach { Gone, Unsure, Confirmed };

struct Neighbor {
    unsigned int ifindex;
    in6_addr address;
    Reach reach;
};

/// An address, and the device that it is tied to.
struct Entry {
    unsigned int ifindex;
    in6_addr address;
};

/// What a notification is about. Functions that are not set are not called.
struct Watcher {
    std::function<void(const Neighbor&)> neighbor;
    std::function<void()> addresses;
    std::function<void(unsigned int ifindex)> link_gone;
    std::function<void()> rule_gone;
};

struct MnlCloser {
    void operator()(mnl_socket* socket) const { (void)mnl_socket_close(socket); }  // nothing left to lose
};

/// A netlink socket by which requests go; each failure is reported on standard error, unless it only says
/// that what is to be added is there, or what is to be deleted is not.
class KernelTables {
public:
    /// Null, after a message, if there is no such socket.
    static std::unique_ptr<KernelTables> open();

    /// Lets the kernel answer for an address on this device, or no longer.
    void proxy(const in6_addr& address, unsigned int ifindex, bool add);
    void host_route(const in6_addr& address, unsigned int ifindex, bool add);

    /// What comes from the device meets the main table without its default routes, and then this table.
    void downlink_rules(unsigned int ifindex, unsigned int table, bool add);

    /// Makes the kernel look for a neighbour, or make sure of it. What it finds comes as a notification.
    void look_for(const in6_addr& address, unsigned int ifindex);

    std::vector<LocalAddress> addresses();
    std::vector<Neighbor> neighbors();

    /// Takes away all that a relay onto this downlink has in the kernel: its routes and rules, what is
    /// answered for on it, and, elsewhere, what is answered for because it is behind the downlink, or, on the
    /// uplink, because it was behind some device and is no more. Other relays of the uplink lose nothing.
    void clean(unsigned int uplink, unsigned int downlink);

private:
    explicit KernelTables(mnl_socket* socket) : socket_(socket) {}
    template <class Read>
    std::vector<Entry> entries(nlmsghdr* request, Read read);
    bool exchange(nlmsghdr* request, const std::function<void(const nlmsghdr*)>& each);
    void change(nlmsghdr* request, const std::string& what);

    std::unique_ptr<mnl_socket, MnlCloser> socket_;
    unsigned int sequence_ = 0;
};

/// A netlink socket that receives notifications.
class KernelEvents {
public:
    static std::unique_ptr<KernelEvents> open();

    int fd() const { return mnl_socket_get_fd(socket_.get()); }

    /// Takes what is there. False if notifications were lost: then everything has to be read anew.
    bool read(const Watcher& watcher);

private:
    explicit KernelEvents(mnl_socket* socket) : socket_(socket) {}

    std::unique_ptr<mnl_socket, MnlCloser> socket_;
};

}  // namespace relay6

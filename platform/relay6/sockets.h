// The sockets of a relay on one of its two devices.
#pragma once

#include <netinet/in.h>
#include <unistd.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "icmp6.h"

namespace relay6 {

/// Owns a descriptor.
class Socket {
public:
    Socket() = default;
    explicit Socket(int fd) : fd_(fd) {}
    Socket(Socket&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Socket& operator=(Socket&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~Socket() {
        if (fd_ >= 0) {
            (void)close(fd_);  // nothing was written that could be lost
        }
    }
    int fd() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }

private:
    int fd_ = -1;
};

/// Sees the neighbour solicitations and advertisements that come in by a device, whoever they are for; for
/// that the device takes in all multicasts as long as the socket is there. Reads begin with the IPv6 header.
Socket open_tap(unsigned int ifindex);

/// Sends ICMPv6 messages by a device with hop limit 255, and receives those of one type.
Socket open_icmp6(const std::string& ifname, std::uint8_t type);

/// Sends and receives DHCPv6 messages by a device, as servers and relays do.
Socket open_dhcp6(const std::string& ifname);

/// Lets the socket receive what is sent to this group on the link.
bool join(const Socket& socket, unsigned int ifindex, const in6_addr& group);

/// What has come in by a device.
struct LinkMessage {
    Bytes bytes;
    in6_addr source;
    int hop_limit;  ///< 255 only if no router has forwarded it
};

/// The next message; empty if there is none, or if it is longer than any that makes sense.
std::optional<LinkMessage> receive(const Socket& socket);

/// Sends to an address on the device's link. Failures are not worth a word: the device may be down, the
/// address of the link not yet be there, and what is sent here is sent again.
bool send_to(const Socket& socket, unsigned int ifindex, const in6_addr& to, std::uint16_t port,
             const Bytes& message);

/// An address that is written as text in this program.
in6_addr address_of(const char* text);

/// The link-layer address that the device has now; empty where it has none of six bytes.
std::optional<Mac> link_address(const Socket& socket, const std::string& ifname);

}  // namespace relay6

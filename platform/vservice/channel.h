// Stream sockets under one deadline: connecting to a service, and moving whole frames over a connection.
#pragma once

#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <utility>

namespace vservice {

/// Owner of one file descriptor.
class Descriptor {
public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept : fd_(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~Descriptor() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }

    int get() const { return fd_; }
    int release() { return std::exchange(fd_, -1); }
    explicit operator bool() const { return fd_ >= 0; }

private:
    int fd_;
};

/// A point of the monotonic clock.
class Deadline {
public:
    using Clock = std::chrono::steady_clock;

    explicit Deadline(std::chrono::seconds patience) : end_(Clock::now() + patience) {}

    /// What is left, rounded up to the millisecond; 0 when over.
    int remaining_ms() const;

private:
    Clock::time_point end_;
};

/// The socket directory, a base name in it as an address: 0, -EINVAL or -ENAMETOOLONG.
extern const char kSocketDirectory[];
int make_address(const std::string& base_name, sockaddr_un& address);

/// True when a service may have the name: not empty, no slash.
bool is_service_name(const std::string& name);

/// True when the process at the other end of the connection runs as uid 0.
bool peer_is_root(int fd);

/// Waits until `fd` is ready for `events`. 0, -ETIMEDOUT, -errno.
int wait_ready(int fd, short events, const Deadline& deadline);

/// Connects to a service that runs as root. 0 or a negative errno.
int connect_service(const std::string& service, const Deadline& deadline, Descriptor& connection);

/// Sends all of `bytes`. 0 or a negative errno.
int send_all(int fd, const std::string& bytes, const Deadline& deadline);

/// Receives one frame of at most `limit` bytes and nothing behind it. 0 or a negative errno;
/// -ECONNRESET when the peer closes before the end, -EMSGSIZE when it announces more.
int receive_frame(int fd, std::size_t limit, const Deadline& deadline, std::string& text);

}  // namespace vservice

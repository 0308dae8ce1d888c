// Every wait goes through poll with what is left of the deadline, and no piece is moved once it is over, so
// that neither a peer that trickles bytes nor a signal can stretch a call.
#include "channel.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>

#include "frame.h"

namespace vservice {

namespace {

constexpr std::size_t kChunkSize = std::size_t{64} << 10;

// A send or receive that would block, or that a signal broke off, is tried again after the next wait.
bool is_retryable(int error) {
    return error == EAGAIN || error == EINTR;
}

// The kernel itself waits for room in the service's queue when the socket has a send timeout; poll does not
// tell when a unix socket could be connected.
int connect_once(int fd, const sockaddr_un& address, int remaining_ms) {
    const timeval timeout{remaining_ms / 1000, suseconds_t{remaining_ms % 1000} * 1000};
    if (setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout) != 0) {
        return -errno;
    }
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
        return 0;
    }
    return errno == EAGAIN ? -ETIMEDOUT : -errno;
}

int connect_until(int fd, const sockaddr_un& address, const Deadline& deadline) {
    int result = -EINTR;
    while (result == -EINTR) {
        const int remaining = deadline.remaining_ms();
        if (remaining == 0) {
            return -ETIMEDOUT;
        }
        result = connect_once(fd, address, remaining);
    }
    return result;
}

// What a call moves that does not block, or a negative errno. It is tried before any wait: mostly the peer is
// ready, and a wait costs as much as the call.
template <class Call>
ssize_t move_bytes(int fd, short events, const Deadline& deadline, Call call) {
    while (deadline.remaining_ms() != 0) {
        const ssize_t count = call();
        if (count >= 0 || !is_retryable(errno)) {
            return count >= 0 ? count : -errno;
        }
        if (const int result = wait_ready(fd, events, deadline); result != 0) {
            return result;
        }
    }
    return -ETIMEDOUT;
}

}  // namespace

const char kSocketDirectory[] = "/var/run/vservice";

int Deadline::remaining_ms() const {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - Clock::now()).count();
    return static_cast<int>(std::min<long long>(std::max<long long>(left, 0), INT_MAX));
}

bool is_service_name(const std::string& name) {
    return !name.empty() && name.find('/') == std::string::npos;
}

int make_address(const std::string& base_name, sockaddr_un& address) {
    const std::string path = std::string(kSocketDirectory) + "/" + base_name;
    address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        return -ENAMETOOLONG;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return 0;
}

bool peer_is_root(int fd) {
    ucred peer{};
    socklen_t size = sizeof peer;
    return getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.uid == 0;
}

int wait_ready(int fd, short events, const Deadline& deadline) {
    pollfd watched{fd, events, 0};
    while (true) {
        const int remaining = deadline.remaining_ms();
        if (remaining == 0) {
            return -ETIMEDOUT;
        }
        const int ready = poll(&watched, 1, remaining);
        if (ready < 0 && errno != EINTR) {
            return -errno;
        }
        if (ready > 0) {
            return 0;
        }
    }
}

int connect_service(const std::string& service, const Deadline& deadline, Descriptor& connection) {
    sockaddr_un address;
    if (!is_service_name(service)) {
        return -EINVAL;
    }
    if (const int result = make_address(service + ".sock", address); result != 0) {
        return result;
    }
    Descriptor fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd) {
        return -errno;
    }
    if (const int result = connect_until(fd.get(), address, deadline); result != 0) {
        return result;
    }
    if (!peer_is_root(fd.get())) {
        return -EPERM;
    }
    connection = std::move(fd);
    return 0;
}

int send_all(int fd, const std::string& bytes, const Deadline& deadline) {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count = move_bytes(fd, POLLOUT, deadline, [&] {
            return send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        });
        if (count < 0) {
            return static_cast<int>(count);
        }
        sent += static_cast<std::size_t>(count);
    }
    return 0;
}

int receive_frame(int fd, std::size_t limit, const Deadline& deadline, std::string& text) {
    std::array<char, kChunkSize> chunk;
    FrameDecoder decoder(limit);
    while (decoder.wanted() > 0) {
        const ssize_t count = move_bytes(fd, POLLIN, deadline, [&] {
            return recv(fd, chunk.data(), std::min(chunk.size(), decoder.wanted()), MSG_DONTWAIT);
        });
        if (count <= 0) {
            return count == 0 ? -ECONNRESET : static_cast<int>(count);
        }
        decoder.feed({chunk.data(), static_cast<std::size_t>(count)});
    }
    if (!decoder.complete()) {
        return -EMSGSIZE;
    }
    text = decoder.take_text();
    return 0;
}

}  // namespace vservice

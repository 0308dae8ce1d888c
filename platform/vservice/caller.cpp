// Hearing a caller.
#include "caller.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace vservice {

bool Caller::is_sound() {
    if (frame_.complete() && method_.empty()) {
        method_ = frame_.take_text();
        frame_ = FrameDecoder(kMaxText);
        return is_method_name(method_);
    }
    return !frame_.failed();
}

Caller::State Caller::receive() {
    std::array<char, 65536> chunk;
    while (method_.empty() || !frame_.complete()) {
        const ssize_t count = recv(fd(), chunk.data(), std::min(chunk.size(), frame_.wanted()), MSG_DONTWAIT);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0 && errno == EAGAIN) {
            return deadline_.remaining_ms() == 0 ? State::Gone : State::Waiting;
        }
        if (count <= 0) {
            return State::Gone;
        }
        frame_.feed({chunk.data(), static_cast<std::size_t>(count)});
        if (!is_sound()) {
            return State::Gone;
        }
    }
    return State::Complete;
}

}  // namespace vservice

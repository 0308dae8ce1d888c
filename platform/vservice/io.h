// The bus buffer behind the opaque `vs_io`, and the border that no exception crosses.
#pragma once

#include <cerrno>
#include <exception>
#include <string>

/// One text, and on the serving side the connection that its reply goes to.
struct vs_io {
    std::string text;
    int reply_socket = -1;  ///< Not owned: the method closes it.
};

namespace vservice {

/// Runs `body` for a C caller: memory that cannot be had becomes -ENOMEM.
template <class Body>
int without_exceptions(Body body) noexcept {
    try {
        return body();
    } catch (const std::exception&) {
        return -ENOMEM;
    }
}

}  // namespace vservice

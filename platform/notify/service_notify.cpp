// One datagram to the manager of services.
#include "service_notify.h"

#include <errno.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <iostream>

void notify_manager(const std::string& state) {
    const char* const path = std::getenv("NOTIFY_SOCKET");
    sockaddr_un address{AF_UNIX, {}};
    if (path == nullptr || *path == '\0' || strlen(path) >= sizeof(address.sun_path)) {
        return;
    }
    std::memcpy(address.sun_path, path, strlen(path));
    if (address.sun_path[0] == '@') {
        address.sun_path[0] = '\0';
    }
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + strlen(path));
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (sendto(fd, state.data(), state.size(), MSG_NOSIGNAL, reinterpret_cast<sockaddr*>(&address), length) <
        0) {
        const std::string reason = std::strerror(errno);
        std::cerr << std::string(program_invocation_short_name) +
                         ": the manager cannot be notified: " + reason + '\n';
    }
    close(fd);
}

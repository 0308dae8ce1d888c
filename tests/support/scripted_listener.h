// A peer on a stream socket that plays the same act for every client, for the life of the object.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <thread>

namespace fixture {

inline void say(int client, const std::string& text) {
    (void)send(client, text.data(), text.size(), MSG_NOSIGNAL);
}

/// What the client sends up to and with `end`, or until it gives up.
inline std::string hear(int client, const std::string& end) {
    std::string text;
    for (char letter; text.find(end) == std::string::npos && read(client, &letter, 1) == 1;) {
        text += letter;
    }
    return text;
}

class Listener {
public:
    using Act = std::function<void(int client)>;

    /// On a unix socket, or without a path on a free port of the loopback.
    explicit Listener(Act act, const std::string& path = "")
        : fd(socket(path.empty() ? AF_INET : AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un local{AF_UNIX, {}};
        path.copy(local.sun_path, sizeof(local.sun_path));
        unlink(path.c_str());
        sockaddr_in loopback{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
        void* const address = path.empty() ? static_cast<void*>(&loopback) : &local;
        socklen_t size = path.empty() ? sizeof(loopback) : sizeof(local);
        EXPECT_EQ(bind(fd, static_cast<sockaddr*>(address), size), 0) << path;
        EXPECT_EQ(listen(fd, 16), 0);
        EXPECT_EQ(getsockname(fd, static_cast<sockaddr*>(address), &size), 0);
        port = std::to_string(ntohs(loopback.sin_port));
        thread_ = std::thread([this, act = std::move(act)] {
            for (int client; (client = accept4(fd, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
                act(client);
                close(client);
            }
        });
    }
    ~Listener() {
        shutdown(fd, SHUT_RDWR);
        thread_.join();
        close(fd);
    }

    const int fd;
    std::string port;

private:
    std::thread thread_;
};

}  // namespace fixture

// Sends one datagram to port 9 of an address: uplink_probe TO [from=ADDRESS] [device=NAME] [mark=NUMBER].
// Exits with 0 if it was sent, with 1 if there is no route, with 2 on a wrong call. "uplink_probe TO
// count=NUMBER" opens so many sockets and sends by each of them one datagram for each line of standard input.
#include <arpa/inet.h>
#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

union Address {
    sockaddr any;
    sockaddr_in ip4;
    sockaddr_in6 ip6;
};

bool parse(const char* text, in_port_t port, Address& address) {
    address = {};
    const bool is_ip6 = strchr(text, ':') != nullptr;
    address.any.sa_family = is_ip6 ? AF_INET6 : AF_INET;
    address.ip4.sin_port = htons(port);  // at the same place in both
    void* bytes = is_ip6 ? static_cast<void*>(&address.ip6.sin6_addr) : &address.ip4.sin_addr;
    return inet_pton(address.any.sa_family, text, bytes) == 1;
}

bool choose(int socket, const char* option) {
    Address from{};
    const char* value = strchr(option, '=') + 1;
    const int mark = atoi(value);
    switch (*option) {
        case 'f':
            return parse(value, 0, from) && bind(socket, &from.any, sizeof(from)) == 0;
        case 'd':
            return setsockopt(socket, SOL_SOCKET, SO_BINDTODEVICE, value, strlen(value)) == 0;
        default:
            return setsockopt(socket, SOL_SOCKET, SO_MARK, &mark, sizeof(mark)) == 0;
    }
}

bool send_one(int sender, const Address& to) {
    return sendto(sender, "?", 1, 0, &to.any, sizeof(to)) == 1;
}

int send_rounds(const Address& to, int count) {
    const rlimit many{rlim_t(count) + 16, rlim_t(count) + 16};
    std::vector<int> senders(setrlimit(RLIMIT_NOFILE, &many) == 0 ? count : 0);
    for (int& sender : senders) {
        sender = socket(to.any.sa_family, SOCK_DGRAM, 0);
    }
    bool sent = !senders.empty();
    while (getchar() != EOF) {
        for (const int sender : senders) {
            sent = send_one(sender, to) && sent;
        }
    }
    return sent ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    Address to{};
    const int sender = argc > 1 && parse(argv[1], 9, to) ? socket(to.any.sa_family, SOCK_DGRAM, 0) : -1;
    if (argc == 3 && strncmp(argv[2], "count=", 6) == 0) {
        return send_rounds(to, atoi(argv[2] + 6));
    }
    for (int i = 2; i < argc; ++i) {
        if (!choose(sender, argv[i])) {
            return 2;
        }
    }
    return sender == -1 ? 2 : !send_one(sender, to);
}

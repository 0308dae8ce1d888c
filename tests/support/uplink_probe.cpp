// Sends one datagram to port 9 of an address: uplink_probe TO [from=ADDRESS] [device=NAME] [mark=NUMBER].
// Exits with 0 if it was sent, with 1 if there is no route, with 2 on a wrong call.
#include <arpa/inet.h>

#include <cstdlib>
#include <cstring>

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

}  // namespace

int main(int argc, char** argv) {
    Address to{};
    const int sender = argc > 1 && parse(argv[1], 9, to) ? socket(to.any.sa_family, SOCK_DGRAM, 0) : -1;
    for (int i = 2; i < argc; ++i) {
        if (!choose(sender, argv[i])) {
            return 2;
        }
    }
    return sender == -1 ? 2 : sendto(sender, "?", 1, 0, &to.any, sizeof(to)) != 1;
}

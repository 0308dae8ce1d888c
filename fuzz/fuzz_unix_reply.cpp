// Foreign bytes as a peer daemon's answer: the client must hand over what was sent, whatever it is.
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "peers/unix/peer_commands.h"
#include "target.h"

/// Deeper stacks come out of the parser's library in ever new forms, and fill the memory.
extern "C" const char* __asan_default_options() {
    return "malloc_context_size=2";
}

bool holds(const std::string& input) {
    static const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{AF_UNIX, "/var/run/network/ncsid.sock"};
    (void)(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0 &&
           listen(listener, 1));
    std::thread peer([&] {
        const int client = accept(listener, nullptr, nullptr);
        char command[1024];
        (void)(recv(client, command, sizeof(command), 0) > 0 && write(client, input.data(), input.size()));
        close(client);
    });
    std::string reply;
    (void)get_retcode(reply, ncsid_cli(reply, "show", "", 0, "") == 0);
    peer.join();
    return reply == input;
}

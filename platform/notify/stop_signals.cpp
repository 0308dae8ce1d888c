// Signals that stop the server.
#include "stop_signals.h"

#include <signal.h>

#include <atomic>
#include <initializer_list>

namespace {

// What a signal handler reaches without an argument of its own.
std::atomic<vs_server*> running_server{nullptr};

void stop(int) {
    vs_server_stop(running_server);
}

}  // namespace

void stop_on_signals(vs_server* server) {
    running_server = server;
    struct sigaction action {};
    action.sa_handler = stop;
    for (const int number : {SIGTERM, SIGINT}) {
        sigaction(number, &action, nullptr);
    }
}

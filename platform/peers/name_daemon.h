// The dnsmasq that runs under its manager: started with the files of the network library, and kept running.
#pragma once

#include <sys/types.h>

#include <mutex>

namespace peers {

/// What dnsmasq reads beside the files of the library: a line "listen-address=<address>" for each address
/// on which it answers beside the loopback's. The manager's own; it must exist.
constexpr const char* kListenPath = "/var/run/network/dnsmasq.listen";

/// Any thread may call. SIGCHLD has to be blocked in all threads: supervise() waits for it.
class NameDaemon {
public:
    /// Ends dnsmasq if it runs, also one that an earlier manager left behind, and starts it on the files as
    /// they are now. Returns when it listens. Throws Refusal if it does not come up; supervise() tries on.
    void restart();

    /// Starts dnsmasq again, two seconds after it ended without being asked to, until stop().
    void supervise();

    /// Ends dnsmasq for good.
    void stop();

private:
    void start();
    void end();
    bool has_ended();
    void revive();

    std::mutex mutex_;
    pid_t pid_ = 0;   ///< 0 while there is none
    int status_ = 0;  ///< of the last one, as waitpid() tells it
    bool stopped_ = false;
};

}  // namespace peers

// How long one request waits for the services of the bus. It holds the lock of its port meanwhile, and every
// other caller of the port gives up after ten seconds; so services that do not answer must not add up.
#pragma once

#include <chrono>
#include <set>
#include <string>

namespace nm {

/// What a request may wait in all, a second for each call left out of account: a call gets the shorter of its
/// own limit and what is left plus that second. So services that answer at once are reached even when nothing
/// is left.
constexpr std::chrono::seconds kRequestPatience{90};

/// The account of the request that runs in this thread, for the life of the object. One within another does
/// nothing: the outer request goes on. Calls outside of any request have their own limits alone.
class RequestWaits {
public:
    explicit RequestWaits(std::chrono::seconds patience = kRequestPatience);
    ~RequestWaits();
    RequestWaits(const RequestWaits&) = delete;
    RequestWaits& operator=(const RequestWaits&) = delete;

    using Clock = std::chrono::steady_clock;

    /// The limit of a call that has one of `seconds`; 0 if the service let a call of this request run out of
    /// time, and is not to be waited for again.
    static int limit_call(const std::string& service, int seconds);

    /// Enters a call that began at `start` under the limit and has ended; `answered` if the service did
    /// reply.
    static void enter_call(const std::string& service, int limit, Clock::time_point start, bool answered);

private:
    struct Account {
        Clock::duration left;
        std::set<std::string> silent;
    };
    Account account_;
    bool is_outermost_;

    static thread_local Account* current;
};

}  // namespace nm

// The account of one request's waits.
#include "peers/bus/request_waits.h"

#include <algorithm>

namespace {

/// What a call may take without being charged.
constexpr std::chrono::seconds kFree{1};

/// A bus library may round its limit; a call that fails so close to it has run out of time.
constexpr std::chrono::milliseconds kRounding{100};

}  // namespace

namespace nm {

thread_local RequestWaits::Account* RequestWaits::current = nullptr;

RequestWaits::RequestWaits(std::chrono::seconds patience)
    : account_{patience, {}}, is_outermost_(current == nullptr) {
    current = is_outermost_ ? &account_ : current;
}

RequestWaits::~RequestWaits() {
    current = is_outermost_ ? nullptr : current;
}

int RequestWaits::limit_call(const std::string& service, int seconds) {
    if (current == nullptr) {
        return seconds;
    }
    if (current->silent.count(service) != 0) {
        return 0;
    }
    const auto left = std::chrono::round<std::chrono::seconds>(current->left + kFree);
    return std::min(seconds, static_cast<int>(left.count()));
}

void RequestWaits::enter_call(const std::string& service, int limit, Clock::time_point start, bool answered) {
    if (current == nullptr) {
        return;
    }
    const Clock::duration took = Clock::now() - start;
    current->left -= std::clamp<Clock::duration>(took - kFree, Clock::duration::zero(), current->left);
    if (!answered && took + kRounding >= std::chrono::seconds(limit)) {
        current->silent.insert(service);
    }
}

}  // namespace nm

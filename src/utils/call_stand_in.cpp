// The stand-in of this process.
#include "utils/call_stand_in.h"

#include <utility>

namespace {

nm::CallStandIn& current() {
    static nm::CallStandIn stand_in;
    return stand_in;
}

}  // namespace

namespace nm {

void stand_in_for_calls(CallStandIn stand_in) {
    current() = std::move(stand_in);
}

const CallStandIn& call_stand_in() {
    return current();
}

}  // namespace nm

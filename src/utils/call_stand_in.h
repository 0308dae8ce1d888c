// Who answers the calls of this process in the place of services and peer daemons, while a request is
// rehearsed.
#pragma once

#include <functional>
#include <string>

namespace nm {

/// A call to somebody outside: of which kind ("bus", "socket", "http"), to whom (a service, a socket's path,
/// a URL), what, with which text.
struct OutsideCall {
    std::string kind;
    std::string peer;
    std::string method;
    std::string request;
};

/// The answer's text, taken as the peer's; false for a peer that cannot be reached.
using CallStandIn = std::function<bool(const OutsideCall& call, std::string& answer)>;

/// From now on, in this process, `stand_in` answers and nobody outside is called.
void stand_in_for_calls(CallStandIn stand_in);

/// Empty where calls are made, which is the rule.
const CallStandIn& call_stand_in();

}  // namespace nm

// One service of the bus whose methods take and give JSON: what the reference daemons have in common.
#pragma once

#include <json/json.h>

#include <string>
#include <vector>

#include "vservice.h"

namespace peers {

/// Works a request, an object if its text was empty. Throws Refusal, whose words the caller is told.
using Answer = Json::Value (*)(const Json::Value& request);

/// Answers one call as the bus wants it done: {"error":0,"data":...}, or {"error":-1,"data":"<why>"}, which
/// is written to the standard error as well.
int answer_call(vs_io* io, int socket, Answer answer);

template <Answer answer>
int serve(vs_io* io, int socket) {
    return answer_call(io, socket, answer);
}

struct Method {
    const char* name;
    vs_method serve;
};

/// Claims the name, runs `at_start` while callers queue, reports readiness to the manager of services, and
/// serves until SIGTERM or SIGINT. The exit status of the daemon.
int run_service(
    const char* name, const std::vector<Method>& methods, void (*at_start)() = [] {});

}  // namespace peers

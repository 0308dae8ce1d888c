// Serving on the bus until a signal.
#include "service.h"

#include <errno.h>
#include <unistd.h>

#include <cstring>
#include <iostream>

#include "service_notify.h"
#include "stop_signals.h"
#include "store.h"

namespace peers {

namespace {

void tell(const std::string& what) {
    std::cerr << std::string(program_invocation_short_name) + ": " + what + '\n';
}

Json::Value envelope(int error, const Json::Value& payload) {
    Json::Value reply;
    reply["error"] = error;
    reply["data"] = payload;
    return reply;
}

// jsoncpp throws too, on a text that is nested too deep.
Json::Value reply_to(const std::string& text, Answer answer) {
    try {
        return envelope(0, answer(text.empty() ? Json::Value(Json::objectValue) : parse_json(text)));
    } catch (const std::exception& failure) {
        tell(failure.what());
        return envelope(-1, failure.what());
    }
}

}  // namespace

int answer_call(vs_io* io, int socket, Answer answer) {
    char* text = nullptr;
    const std::size_t length = vs_io_read(io, &text);
    const std::string reply = to_line(reply_to(std::string(text == nullptr ? "" : text, length), answer));
    vs_io_realloc(io, 0);
    vs_io_write(io, reply.data(), reply.size());
    const int result = vs_reply(io);
    vs_io_free(io);
    close(socket);
    return result;
}

int run_service(const char* name, const std::vector<Method>& methods, void (*at_start)()) {
    vs_server* const server = vs_server_create(name);
    if (server == nullptr) {
        tell(std::string("cannot listen: ") + std::strerror(errno));
        return 1;
    }
    for (const Method& method : methods) {
        vs_server_add_method(server, method.name, method.serve);
    }
    stop_on_signals(server);
    at_start();
    notify_manager("READY=1");
    const int result = vs_server_run(server);
    if (result != 0) {
        tell(std::string("cannot serve: ") + std::strerror(-result));
    }
    stop_on_signals(nullptr);
    vs_server_free(server);
    return result == 0 ? 0 : 1;
}

}  // namespace peers

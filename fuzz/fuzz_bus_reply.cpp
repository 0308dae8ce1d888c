// Foreign bytes as a service's reply on the bus: an envelope gives its own code, else it is the parser's.
#include <unistd.h>
#include <vservice.h>

#include <thread>

#include "peers/bus/bus_exchange.h"
#include "peers/bus/service_bus.h"
#include "result_codes.h"
#include "target.h"

static std::string reply, text;
static int answer(vs_io* io, int socket) {
    (void)(vs_io_realloc(io, 0) == 0 && vs_io_write(io, reply.data(), reply.size()) == 0 && vs_reply(io));
    vs_io_free(io);
    return close(socket);
}

bool holds(const std::string& input) {
    static vs_server* const server = vs_server_create("fuzzed");
    static const auto* const serving = new std::thread(
        [] { vs_server_add_method(server, "Ask", answer) == 0 ? vs_server_run(server) : (std::abort(), 0); });
    reply = input;
    Json::Value envelope;
    int code = NM_ERR_PARSE;
    (void)nm::read_envelope(reply, envelope, code);
    return serving != nullptr && vservice_call("fuzzed", "Ask", text, text, false) == code &&
           (nm::ask_service("fuzzed", "Ask", {}, 7) == code || code == 0);
}

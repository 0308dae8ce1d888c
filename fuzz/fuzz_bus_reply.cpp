// Foreign bytes as a service's reply on the bus: an envelope gives its own code, else it is the parser's.
#include <unistd.h>
#include <vservice.h>

#include <cstdlib>
#include <thread>

#include "peers/bus/bus_exchange.h"
#include "peers/bus/service_bus.h"
#include "result_codes.h"

static std::string reply, text;
static int answer(vs_io* io, int socket) {
    (void)(vs_io_realloc(io, 0) == 0 && vs_io_write(io, reply.data(), reply.size()) == 0 && vs_reply(io));
    vs_io_free(io);
    return close(socket);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static vs_server* const server = vs_server_create("fuzzed");
    static const auto* const serving = new std::thread(
        [] { vs_server_add_method(server, "Ask", answer) == 0 ? vs_server_run(server) : (std::abort(), 0); });
    reply.assign(reinterpret_cast<const char*>(bytes), size);
    Json::Value envelope;
    int code = NM_ERR_PARSE;
    (void)nm::read_envelope(reply, envelope, code);
    const bool right = vservice_call("fuzzed", "Ask", text, text, false) == code &&
                       (nm::ask_service("fuzzed", "Ask", {}, 7) == code || code == 0);
    return serving != nullptr && right ? 0 : (std::abort(), 0);
}

// One request and its reply on the service bus.
#include "peers/bus/bus_exchange.h"

#include <vservice.h>

#include <memory>

#include "result_codes.h"
#include "utils/json_text.h"

namespace nm {

int exchange(const std::string& service, const std::string& method, const std::string& request,
             int timeout_seconds, std::string& reply) {
    constexpr int kFlags = -1;
    const std::unique_ptr<vs_io, void (*)(vs_io*)> io(vs_io_create(), vs_io_free);
    if (io == nullptr) {
        return NM_ERR_BUS_IO;
    }
    // What these two return differs between builds of the bus library; the call itself tells.
    (void)vs_io_realloc(io.get(), 0);
    (void)vs_io_write(io.get(), request.data(), request.size());
    if (vs_call(service.c_str(), method.c_str(), io.get(), timeout_seconds, kFlags) != 0) {
        return NM_ERR_BUS_CALL;
    }
    char* text = nullptr;
    const size_t length = vs_io_read(io.get(), &text);
    reply = text != nullptr ? std::string(text, length) : std::string();
    return NM_OK;
}

bool read_envelope(const std::string& text, Json::Value& reply, int& error) {
    return parse_json(text, reply) && json_integer(reply, "error", 0, error);
}

}  // namespace nm

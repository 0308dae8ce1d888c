// Whole requests of the service bus, "METHOD REQUEST", to the methods that only read: one reply each, an
// object with an integer code.
#include <vservice.h>

#include <thread>

#include "control/handlers/vs_api.h"
#include "target.h"
#include "utils/json_text.h"

bool holds(const std::string& input) {
    static vs_server* const server = vs_server_create("fuzzed_api");
    static const auto* const serving = new std::thread([] {
        for (const vs_api_method& method : vs_api_methods()) {
            std::string(method.log) == "API" ? vs_server_add_method(server, method.name, method.handler) : 0;
        }
        vs_server_run(server);
    });
    const std::string method = input.substr(0, input.find(' ')), request = input.substr(method.size());
    const std::unique_ptr<vs_io, void (*)(vs_io*)> io(vs_io_create(), vs_io_free);
    (void)vs_io_write(io.get(), request.data(), request.size());
    const int result = vs_call("fuzzed_api", method.c_str(), io.get(), 60, -1);
    char* answer = nullptr;
    const std::size_t length = vs_io_read(io.get(), &answer);
    Json::Value reply;
    const bool right =
        result != 0 || (nm::parse_json(std::string(answer, length), reply) && reply["error"].isInt());
    return serving != nullptr && right && (result == 0 || result == -EINVAL);
}

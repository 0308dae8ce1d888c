// The methods of the service daemon, served by the test itself, and calls to them as a caller makes them.
#pragma once

#include <thread>

#include "control/handlers/vs_api.h"
#include "fake_service.h"
#include "sandbox_fixture.h"

namespace fixture {

inline std::string call_bus(const std::string& method, const std::string& body,
                            const std::string& service = "networkmanagement") {
    const std::unique_ptr<vs_io, void (*)(vs_io*)> io(vs_io_create(), vs_io_free);
    EXPECT_EQ(vs_io_write(io.get(), body.data(), body.size()), 0);
    const int result = vs_call(service.c_str(), method.c_str(), io.get(), 60, -1);
    char* text = nullptr;
    const std::size_t length = vs_io_read(io.get(), &text);
    return result == 0 ? std::string(text, length) : "failed: " + std::to_string(result);
}

/// What a method answers, with ' for " in the request and in the answer, "-1002 data" or "-1002" without
/// data.
inline std::string ask(const std::string& method, const std::string& body = "") {
    Json::Value reply;
    const std::string text = call_bus(method, quoted(body));
    if (!nm::parse_json(text, reply) || !reply["error"].isInt()) {
        return text;
    }
    std::string data = reply.isMember("data") ? " " + nm::show_json(reply["data"]) : "";
    std::replace(data.begin(), data.end(), '"', '\'');
    return std::to_string(reply["error"].asInt()) + data;
}

/// Serves all methods for the life of the program, as the daemon does.
class ServedMethods : public testing::Environment {
    void SetUp() override {
        server_ = vs_server_create("networkmanagement");
        ASSERT_NE(server_, nullptr);
        for (const vs_api_method& method : vs_api_methods()) {
            EXPECT_EQ(vs_server_add_method(server_, method.name, method.handler), 0) << method.name;
        }
        thread_ = std::thread([this] { vs_server_run(server_); });
    }
    void TearDown() override {
        vs_server_stop(server_);
        thread_.join();
        vs_server_free(server_);
    }
    vs_server* server_ = nullptr;
    std::thread thread_;
};

}  // namespace fixture

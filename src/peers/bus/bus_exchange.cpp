// One request and its reply on the service bus.
#include "peers/bus/bus_exchange.h"

#include <vservice.h>

#include <memory>
#include <string_view>

#include "log.h"
#include "peers/bus/request_waits.h"
#include "result_codes.h"
#include "utils/call_notes.h"
#include "utils/call_stand_in.h"
#include "utils/json_text.h"

namespace {

constexpr std::size_t kMaxReply = std::size_t{16} << 20;
constexpr std::size_t kMaxValues = std::size_t{1} << 20;

/// How many values the JSON text may hold, its members and elements: what stands before each of them is
/// counted.
std::size_t count_values(std::string_view text) {
    std::size_t count = 0;
    bool in_string = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '"') {
            in_string = !in_string;
        } else if (in_string) {
            i += c == '\\' ? 1 : 0;
        } else {
            count += c == ',' || c == '[' || c == '{' ? 1 : 0;
        }
    }
    return count;
}

/// A value takes a hundred bytes once it is parsed and two in the text, so both have a bound.
bool is_affordable(std::string_view reply) {
    return reply.size() <= kMaxReply && (reply.size() <= 2 * kMaxValues || count_values(reply) <= kMaxValues);
}

int call_within_request(const std::string& service, const std::string& method, vs_io* io,
                        int timeout_seconds) {
    constexpr int kFlags = -1;
    const int limit = nm::RequestWaits::limit_call(service, timeout_seconds);
    if (limit == 0) {
        NM_LOG(Warning) << service << " has let this request wait in vain, so " << method
                        << " is not called.";
        return NM_ERR_BUS_CALL;
    }
    const nm::WaitNote note("an answer of " + service, limit);
    const nm::Step step("bus", service, method);
    const auto start = nm::RequestWaits::Clock::now();
    const bool answered = vs_call(service.c_str(), method.c_str(), io, limit, kFlags) == 0;
    nm::RequestWaits::enter_call(service, limit, start, answered);
    return step.result(answered ? NM_OK : NM_ERR_BUS_CALL);
}

}  // namespace

namespace nm {

int exchange(const std::string& service, const std::string& method, const std::string& request,
             int timeout_seconds, std::string& reply) {
    if (const CallStandIn& answer = call_stand_in()) {
        return answer({"bus", service, method, request}, reply) ? NM_OK : NM_ERR_BUS_CALL;
    }
    const std::unique_ptr<vs_io, void (*)(vs_io*)> io(vs_io_create(), vs_io_free);
    if (io == nullptr) {
        return NM_ERR_BUS_IO;
    }
    // What these two return differs between builds of the bus library; the call itself tells.
    (void)vs_io_realloc(io.get(), 0);
    (void)vs_io_write(io.get(), request.data(), request.size());
    if (call_within_request(service, method, io.get(), timeout_seconds) != NM_OK) {
        return NM_ERR_BUS_CALL;
    }
    char* text = nullptr;
    const std::size_t length = vs_io_read(io.get(), &text);
    const std::string_view answer = text != nullptr ? std::string_view(text, length) : std::string_view();
    if (!is_affordable(answer)) {
        NM_LOG(Error) << service << "." << method << " answered too much, " << length << " bytes.";
        return NM_ERR_BUS_CALL;
    }
    reply = answer;
    return NM_OK;
}

bool read_envelope(const std::string& text, Json::Value& reply, int& error) {
    return parse_json(text, reply) && json_integer(reply, "error", 0, error);
}

}  // namespace nm

// Requests of the service bus, read and answered.
#include "control/handlers/vs_reply.h"

#include <unistd.h>
#include <vservice.h>

#include <cstdlib>

#include "config/nmconfig.h"
#include "control/setup_frame.h"
#include "log.h"
#include "result_codes.h"
#include "utils/json_text.h"

namespace {

void send_reply(vs_io* io, int socket, const Json::Value& reply) {
    const std::string text = nm::write_compact_json(reply);
    (void)vs_io_realloc(io, 0);
    if (vs_io_write(io, text.data(), text.size()) != 0 || vs_reply(io) != 0) {
        NM_LOG(Error) << "vs_reply failed.";
    }
    vs_io_free(io);
    close(socket);
}

Json::Value envelope(int error, const char* version) {
    Json::Value reply;
    reply["error"] = error;
    reply["meta"]["version"] = version;
    return reply;
}

void send_answer(vs_io* io, int socket, const nm::Answer& answer) {
    Json::Value reply = envelope(answer.error, answer.version);
    if (answer.has_data) {
        reply["data"] = answer.data;
    }
    send_reply(io, socket, reply);
}

nm::Answer refuse(const nm::Refusal& refusal) {
    NM_LOG(Error) << refusal.words;
    return {refusal.error, refusal.words};
}

nm::Answer answer_request(vs_io* io, const nm::Handler& handler) {
    Json::Value arguments(Json::objectValue);
    if (!handler.takes_arguments) {
        return handler.work(arguments);
    }
    char* text = nullptr;
    const size_t length = vs_io_read(io, &text);
    if (length == 0 || text == nullptr) {
        return refuse(handler.unread);
    }
    if (!nm::parse_json(std::string(text, length), arguments)) {
        return refuse(handler.unparsed);
    }
    if (!arguments.isObject()) {
        return refuse({NM_ERR_BAD_FORMAT, "root is not valid format"});
    }
    return handler.work(arguments);
}

}  // namespace

void vs_reply_free(vs_io* io, int socket, int error, const Json::Value& data, std::string version) {
    Json::Value reply = envelope(error, version.c_str());
    reply["data"] = data;
    send_reply(io, socket, reply);
}

namespace nm {

Answer code_answer(int error) {
    return {error, Json::Value(), false};
}

int serve(vs_io* io, int socket, const char* signature, const Handler& handler) {
    return run_entry(
        signature,
        [=, &handler] {
            Answer answer{NM_OK, Json::Value()};
            const int ret = shielded([&] {
                answer = answer_request(io, handler);
                return answer.error;
            });
            answer.error = ret;
            send_answer(io, socket, answer);
            return ret;
        },
        handler.category);
}

std::string text_argument(const Json::Value& arguments, const char* key, const std::string& fallback) {
    const std::string text = json_string_or(arguments, key, "");
    return text.empty() ? fallback : text;
}

int number_argument(const Json::Value& arguments, const char* key) {
    const Json::Value& value = json_member(arguments, key);
    if (value.isString()) {
        return atoi(value.asCString());
    }
    return value.isInt() || value.isBool() ? value.asInt() : 0;
}

std::string path_argument(const Json::Value& arguments) {
    return text_argument(arguments, "path", kDeviceInfoPath);
}

Answer query_answer(int error, const Json::Value& data) {
    return {error, error == NM_OK ? data : Json::Value()};
}

}  // namespace nm

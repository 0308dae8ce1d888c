// Requests of the service bus, read and answered.
#include "control/handlers/vs_reply.h"

#include <sys/stat.h>
#include <vservice.h>

#include <cstdlib>
#include <memory>
#include <utility>

#include "config/nmconfig.h"
#include "control/setup_frame.h"
#include "log.h"
#include "utils/handles.h"
#include "utils/json_text.h"

namespace {

/// A request's handles, given back in the order that the bus wants: the io, then the socket.
class Request {
public:
    Request(vs_io* io, int socket) : socket_(socket), io_(io, vs_io_free) {}

    std::string text() const {
        char* text = nullptr;
        const size_t length = vs_io_read(io_.get(), &text);
        return text != nullptr ? std::string(text, length) : "";
    }

    /// Whether the reply went out. One that the bus refuses for its size may be followed by a smaller one.
    bool reply(const Json::Value& reply) {
        const std::string text = nm::write_compact_json(reply);
        return vs_io_realloc(io_.get(), 0) == 0 && vs_io_write(io_.get(), text.data(), text.size()) == 0 &&
               vs_reply(io_.get()) == 0;
    }

private:
    nm::FileDescriptor socket_;
    std::unique_ptr<vs_io, void (*)(vs_io*)> io_;
};

Json::Value envelope(int error, const std::string& version) {
    Json::Value reply;
    reply["error"] = error;
    reply["meta"]["version"] = version;
    return reply;
}

/// One reply, whatever becomes of it: a caller that is gone gets none, one whose answer is too long for the
/// bus or for the memory learns that much. The code that was answered.
int send_reply(Request& request, const Json::Value& reply) {
    const int error = reply["error"].asInt();
    const int ret = nm::shielded([&] { return request.reply(reply) ? NM_OK : NM_ERR_BUFFER; });
    if (ret == NM_OK) {
        return error;
    }
    NM_LOG(Error) << "vs_reply failed.";
    const std::string version = reply["meta"]["version"].asString();
    return nm::shielded([&] { return request.reply(envelope(ret, version)) ? ret : error; });
}

nm::Answer answer_request(const Request& request, const nm::Method& method) {
    Json::Value arguments(Json::objectValue);
    if (*method.facts.arguments == '\0') {
        return method.work(arguments);
    }
    const std::string text = request.text();
    if (text.empty()) {
        return nm::refuse(method.unread);
    }
    if (!nm::parse_json(text, arguments)) {
        return nm::refuse(method.unparsed);
    }
    return arguments.isObject() ? method.work(arguments) : nm::refuse(method.misformed);
}

int answer_and_reply(Request& request, const nm::Method& method) {
    nm::Answer answer{NM_OK, Json::Value()};
    answer.error = nm::shielded([&] {
        answer = answer_request(request, method);
        return answer.error;
    });
    Json::Value reply = envelope(answer.error, method.version);
    if (*method.facts.reply != '\0') {
        reply["data"] = std::move(answer.data);
    }
    return send_reply(request, reply);
}

}  // namespace

void vs_reply_free(vs_io* io, int socket, int error, const Json::Value& data, std::string version) {
    Request request(io, socket);
    Json::Value reply = envelope(error, version);
    reply["data"] = data;
    (void)send_reply(request, reply);
}

namespace nm {

int serve(vs_io* io, int socket, const Method& method) {
    Request request(io, socket);
    const std::string signature = "int " + std::string(method.facts.name) + "(vs_io*, int)";
    return run_entry(
        signature.c_str(), [&] { return answer_and_reply(request, method); }, method.facts.log);
}

Answer refuse(const Refusal& refusal) {
    NM_LOG(Error) << refusal.words;
    return {refusal.error, refusal.words};
}

std::string text_argument(const Json::Value& arguments, const char* key, const std::string& fallback) {
    const Json::Value& value = json_member(arguments, key);
    const std::string text = value.isConvertibleTo(Json::stringValue) ? value.asString() : "";
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
    const std::string path = text_argument(arguments, "path", kDeviceInfoPath);
    struct stat status {};
    const bool is_odd =
        stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
    if (is_odd) {
        NM_LOG(Error) << path << " is not a file";
    }
    return is_odd ? "/dev/null" : path;
}

Answer query_answer(int error, const Json::Value& data) {
    return {error, error == NM_OK ? data : Json::Value()};
}

}  // namespace nm

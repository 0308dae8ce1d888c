// Calls over the service bus.
#include "peers/bus/service_bus.h"

#include <iostream>

#include "log.h"
#include "peers/bus/bus_exchange.h"
#include "result_codes.h"
#include "utils/json_text.h"

namespace {

constexpr int kWrapperTimeout = 60;
constexpr int kDirectTimeout = 5;

/// Asks `ncaas` for a file; `report` gets the line that tells of an error in the reply.
template <class Report>
void ask_ncaas_for_file(const std::string& method, const std::string& path, Report report) {
    std::string text;
    if (nm::exchange_about_file(method, path, "{\"path\": \"" + path + "\"}", text) != NM_OK) {
        return;
    }
    Json::Value reply;
    int error = 0;
    if (!nm::read_envelope(text, reply, error)) {
        NM_LOG(Error) << "Json reader parse fail!, raw data: " << nm::show_broken_json(text);
    } else if (error != 0) {
        report("Get error: " + nm::show_json(reply["data"]));
    }
}

void log_error(const std::string& line) {
    NM_LOG(Error) << line;
}

}  // namespace

int vservice_call(std::string service, std::string method, std::string& input, std::string& output, bool) {
    std::string raw;
    const int ret = nm::exchange(service, method, input, kWrapperTimeout, raw);
    if (ret == NM_ERR_BUS_IO) {
        NM_LOG(Error) << "vs_io_create failed.";
        return ret;
    }
    if (ret != NM_OK) {
        NM_LOG(Error) << "vs_call " << service << "." << method << " failed. input: " << input;
        return ret;
    }
    Json::Value reply;
    int error = 0;
    if (!nm::read_envelope(raw, reply, error)) {
        NM_LOG(Error) << "Json reader parse fail!, raw data: " << nm::show_broken_json(raw);
        return NM_ERR_PARSE;
    }
    output = reply.isMember("data") ? nm::write_compact_json(reply["data"]) : "";
    if (error != 0) {
        NM_LOG(Error) << "vsh call error. raw data: " << raw;
    }
    return error;
}

void read_ini(std::string path) {
    ask_ncaas_for_file("read_ini", path, [](const std::string& line) { std::cout << line; });
}

void read_json(std::string path) {
    ask_ncaas_for_file("read_json", path, log_error);
}

void sync_file(std::string path) {
    ask_ncaas_for_file("sync_file", path, log_error);
}

int get_device_id() {
    Json::Value id;
    if (nm::ask_for_value("ncaas", "get_devid", id) != NM_OK) {
        return 0;
    }
    if (!id.isInt()) {
        (void)nm::refuse_answer(id);  // the id of a device without one stands for any failure
        return 0;
    }
    return id.asInt();
}

int get_model(std::string& model) {
    Json::Value answer;
    const int ret = nm::ask_for_value("ncaas", "get_model", answer);
    if (ret != NM_OK) {
        return ret;
    }
    if (!answer.isString()) {
        return nm::refuse_answer(answer);
    }
    model = answer.asString();
    return NM_OK;
}

namespace nm {

int exchange_about_file(const std::string& method, const std::string& path, const std::string& request,
                        std::string& reply) {
    const int ret = exchange("ncaas", method, request, kDirectTimeout, reply);
    if (ret == NM_ERR_BUS_IO) {
        NM_LOG(Error) << "vs_io_create failed";
    }
    if (ret == NM_ERR_BUS_CALL) {
        NM_LOG(Error) << "vs_call ncaas." << method << " path=" << path << " failed";
    }
    return ret;
}

int call_service(const std::string& service, const std::string& method, std::string request,
                 std::string& output) {
    const int ret = vservice_call(service, method, request, output, false);
    if (ret != NM_OK) {
        NM_LOG(Error) << "vsh " << service << "." << method << " failed, ret: " << ret;
    }
    return ret;
}

int ask_for_value(const std::string& service, const std::string& method, Json::Value& value) {
    std::string output;
    const int ret = call_service(service, method, "", output);
    if (ret != NM_OK) {
        return ret;
    }
    Json::Value answer;
    if (!parse_json(output, answer)) {
        NM_LOG(Error) << "Json reader parse failed!, data: " << output;
        return NM_ERR_PARSE;
    }
    value = answer;
    return NM_OK;
}

int refuse_answer(const Json::Value& value) {
    NM_LOG(Error) << "Json reader parse failed!, data: " << show_json(value);
    return NM_ERR_PARSE;
}

int query_service(const std::string& service, const std::string& method, const Json::Value& request,
                  int& error) {
    std::string input = request.isNull() ? "" : write_compact_json(request);
    std::string output;
    const int ret = vservice_call(service, method, input, output, false);
    if (ret != NM_OK) {
        NM_LOG(Error) << "vsh " << service << "." << method << " failed.";
        return ret;
    }
    NM_LOG(Debug) << "vsh " << service << "." << method << ": " << output;
    Json::Value reply;
    if (!parse_json(output, reply)) {
        NM_LOG(Error) << "Json parse failed.";
        return NM_ERR_PARSE;
    }
    if (!json_integer(reply, "error", error, error)) {
        NM_LOG(Error) << "Unknown Error: " << output;
        return NM_ERR_PARSE;
    }
    if (error != 0) {
        const Json::Value& result = json_member(reply, "result");
        NM_LOG(Error) << "Error: " << (result.isNull() ? "Unknown Error." : show_json(result));
    }
    return NM_OK;
}

int ask_service(const std::string& service, const std::string& method, const Json::Value& request,
                int missing_error) {
    int error = missing_error;
    const int ret = query_service(service, method, request, error);
    return ret != NM_OK ? ret : error;
}

}  // namespace nm

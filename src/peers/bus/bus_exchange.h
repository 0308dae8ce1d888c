// One request and its reply on the service bus, and the envelope that replies come in.
#pragma once

#include <json/value.h>

#include <string>

namespace nm {

/// Sends `request` to `service.method` and stores the reply's text. 0; NM_ERR_BUS_IO; NM_ERR_BUS_CALL, also
/// when nothing came within `timeout_seconds` or within what is left of the request's patience
/// (request_waits.h), and for a reply of more than 16 MiB or a million values. Why a call was not made or its
/// reply refused is logged; for failures callers have words of their own.
int exchange(const std::string& service, const std::string& method, const std::string& request,
             int timeout_seconds, std::string& reply);

/// exchange() with `ncaas` about the file at `path`, within 5 seconds; a failure is logged.
int exchange_about_file(const std::string& method, const std::string& path, const std::string& request,
                        std::string& reply);

/// Parses a reply and reads its `error`, 0 if it has none. False for a text that is no such envelope.
bool read_envelope(const std::string& text, Json::Value& reply, int& error);

/// vservice_call() for callers without words of their own: "vsh <service>.<method> failed, ret: ".
int call_service(const std::string& service, const std::string& method, std::string request,
                 std::string& output);

/// What `service.method` answers to an empty request, as a value; untouched on failure. 0; the code of the
/// call; NM_ERR_PARSE ("Json reader parse failed!, data: ").
int ask_for_value(const std::string& service, const std::string& method, Json::Value& value);

/// Logs an answer that is of another kind than its caller can use: NM_ERR_PARSE.
int refuse_answer(const Json::Value& value);

/// One request to a service that answers `{error, result}`; a null request is an empty argument. Logs "vsh
/// <service>.<method> failed.", "Json parse failed.", "Error: <result>" or "Unknown Error: ...". The result
/// is the code of the call or of parsing. `error` takes the reply's, and keeps what it is if the reply has
/// none.
int query_service(const std::string& service, const std::string& method, const Json::Value& request,
                  int& error);

/// query_service() where the reply's error is the result; `missing_error` is that of a reply without one.
int ask_service(const std::string& service, const std::string& method, const Json::Value& request,
                int missing_error);

}  // namespace nm

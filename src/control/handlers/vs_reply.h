// A handler's side of the service bus: what a method is made of, reading the arguments of a request, and the
// one reply to it.
#pragma once

#include <json/value.h>

#include <string>

#include "control/handlers/vs_api.h"
#include "result_codes.h"

namespace nm {

/// What a method answers. `data` is sent by methods whose row describes one.
struct Answer {
    int error;
    Json::Value data;
};

/// What a request that cannot be worked is answered with.
struct Refusal {
    int error;
    const char* words;
};

/// A method: its row of the public table, its work, which is given the arguments, an object, the version of
/// its replies, and how it refuses a request without a text, one that is not JSON, and JSON that is not an
/// object.
struct Method {
    vs_api_method facts;
    Answer (*work)(const Json::Value& arguments);
    const char* version = "1.1";
    Refusal unread{NM_ERR_BUS_READ, "IO Read failed."};
    Refusal unparsed{NM_ERR_PARSE, "Json parse failed."};
    Refusal misformed{NM_ERR_BAD_FORMAT, "root is not valid format"};
};

/// Works one request: sets up the log, reads and parses the arguments, keeps exceptions inside, replies, and
/// gives `io` and `socket` back. The code that was answered.
int serve(vs_io* io, int socket, const Method& method);

/// Logs the words and answers them.
Answer refuse(const Refusal& refusal);

/// Argument `key` as a text, a number or a boolean written out; `fallback` if it is absent, empty or of
/// another type.
std::string text_argument(const Json::Value& arguments, const char* key, const std::string& fallback = "");

/// Argument `key` as a number: a JSON integer, a boolean or a decimal text; 0 for anything else.
int number_argument(const Json::Value& arguments, const char* key);

/// The document that a query is about: `path`, by default the device document. A pipe or a device, which
/// could be read for ever, gives the path of an empty file.
std::string path_argument(const Json::Value& arguments);

/// The answer to a query whose result is in `data` if `error` is 0.
Answer query_answer(int error, const Json::Value& data);

}  // namespace nm

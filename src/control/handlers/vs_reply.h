// A handler's side of the service bus: reading the arguments of a request, and the one reply to it.
#pragma once

#include <json/value.h>

#include <string>

#include "control/handlers/vs_api.h"
#include "result_codes.h"

namespace nm {

/// What a handler answers. Without `has_data` the reply carries no payload.
struct Answer {
    int error;
    Json::Value data;
    bool has_data = true;
    const char* version = "1.1";
};

/// An answer that is a result code alone.
Answer code_answer(int error);

/// What a request that cannot be worked is answered with.
struct Refusal {
    int error;
    const char* words;
};

/// A row for each handler: the category of its log, its work, which is given the arguments, an object, and
/// how it refuses a request without a text and one that is not JSON.
struct Handler {
    const char* category;
    bool takes_arguments;
    Answer (*work)(const Json::Value& arguments);
    Refusal unread{NM_ERR_BUS_READ, "IO Read failed."};
    Refusal unparsed{NM_ERR_PARSE, "Json parse failed."};
};

/// Works one request: sets up the log, reads and parses the arguments, keeps exceptions inside, replies.
/// `signature` is the handler's __PRETTY_FUNCTION__. The code that was answered.
int serve(vs_io* io, int socket, const char* signature, const Handler& handler);

/// Argument `key` as a text; `fallback` if it is absent, not a text or empty.
std::string text_argument(const Json::Value& arguments, const char* key, const std::string& fallback = "");

/// Argument `key` as a number: a JSON integer, a boolean or a decimal text; 0 for anything else.
int number_argument(const Json::Value& arguments, const char* key);

/// The document that a query is about: `path`, by default the device document.
std::string path_argument(const Json::Value& arguments);

/// The answer to a query whose result is in `data` if `error` is 0.
Answer query_answer(int error, const Json::Value& data);

}  // namespace nm

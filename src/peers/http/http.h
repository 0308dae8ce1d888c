// HTTP clients of the library: synchronous, with retries and a time limit. Only http and https URLs are
// served, so that a configured URL cannot name a local file.
//
// libcurl is loaded by the first call; without the package that holds it (Debian's libcurl4) every call fails
// with NM_ERR_HTTP_INIT and says so in the log. Calls may run in any number of threads. What libcurl keeps
// for the whole process is set up by the first call and stays until the process ends: taking it down after a
// call would pull it from under a call in another thread, or from under a caller that uses libcurl itself.
// What a call allocates is freed when it returns.
#pragma once

#if __has_include(<curl/curl.h>)
#include <curl/curl.h>
#endif

#include <cstdint>
#include <string>

#pragma GCC visibility push(default)

/// Runs the transfer up to `tries` times until one succeeds and sleeps `delay` seconds (3 if it is 0) between
/// two tries, not after the last. The code of the last try; CURLE_FAILED_INIT for no try at all, or without
/// libcurl. For callers that have libcurl's headers.
#if __has_include(<curl/curl.h>)
CURLcode nm_curl_perform(CURL* handle, uint16_t tries, uint16_t delay);
#endif

/// GET of `url`. Any answer of the server is a success, also an HTTP error: its body goes into `response` in
/// place of what stood there, its status into the log. `timeout` limits each try, in seconds; 0 sets no
/// limit. User, password, query and fragment of the URL are kept out of the log. 0; NM_ERR_HTTP_INIT;
/// NM_ERR_HTTP_TRANSFER, with `response` untouched.
int nm_curl_get(std::string url, std::string& response, int timeout, unsigned short tries,
                unsigned short delay);

/// PUT and POST of `body` as "application/json;charset=UTF-8"; else as nm_curl_get().
int nm_curl_put(std::string url, std::string body, int timeout, unsigned short tries, unsigned short delay,
                std::string& response);
int nm_curl_post(std::string url, std::string body, int timeout, unsigned short tries, unsigned short delay,
                 std::string& response);

#pragma GCC visibility pop

// HTTP clients over libcurl.
#include "peers/http.h"

#include <sys/socket.h>

#include <chrono>
#include <memory>
#include <thread>

#include "log.h"
#include "result_codes.h"

namespace {

constexpr uint16_t kDefaultDelay = 3;
constexpr const char* kJsonContent = "Content-Type:application/json;charset=UTF-8";

using Handle = std::unique_ptr<CURL, void (*)(CURL*)>;
using Url = std::unique_ptr<CURLU, void (*)(CURLU*)>;
using HeaderList = std::unique_ptr<curl_slist, void (*)(curl_slist*)>;

/// One request; no `method` is a GET, which has no body.
struct Request {
    std::string url;
    const char* method;
    std::string body;
    int timeout;
    uint16_t tries;
    uint16_t delay;
};

/// What the library holds for the process is made once, whichever thread comes first.
Handle make_handle() {
    static const CURLcode ready = curl_global_init(CURL_GLOBAL_DEFAULT);
    return {ready == CURLE_OK ? curl_easy_init() : nullptr, curl_easy_cleanup};
}

std::size_t append_body(char* bytes, std::size_t size, std::size_t count, void* body) {
    static_cast<std::string*>(body)->append(bytes, size * count);
    return size * count;
}

/// An answer begins with its status line: what a try before this one left of its body is dropped.
std::size_t watch_header(char* bytes, std::size_t size, std::size_t count, void* body) {
    const std::string line(bytes, size * count);
    if (line.rfind("HTTP/", 0) == 0) {
        static_cast<std::string*>(body)->clear();
    }
    return line.size();
}

/// The library's own sockets would be inherited by the daemons that other threads start meanwhile.
curl_socket_t open_socket(void*, curlsocktype, curl_sockaddr* address) {
    return socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

template <class Value>
bool set(const Handle& handle, CURLoption option, Value value) {
    return curl_easy_setopt(handle.get(), option, value) == CURLE_OK;
}

bool set_common(const Handle& handle, const Request& request, std::string& response) {
    return set(handle, CURLOPT_URL, request.url.c_str()) &&
           set(handle, CURLOPT_PROTOCOLS_STR, "http,https") &&
           set(handle, CURLOPT_TIMEOUT, static_cast<long>(request.timeout)) &&
           set(handle, CURLOPT_NOSIGNAL, 1L) && set(handle, CURLOPT_OPENSOCKETFUNCTION, open_socket) &&
           set(handle, CURLOPT_WRITEFUNCTION, append_body) && set(handle, CURLOPT_WRITEDATA, &response) &&
           set(handle, CURLOPT_HEADERFUNCTION, watch_header) && set(handle, CURLOPT_HEADERDATA, &response);
}

bool set_upload(const Handle& handle, const Request& request, const HeaderList& headers) {
    return request.method == nullptr ||
           (headers != nullptr && set(handle, CURLOPT_CUSTOMREQUEST, request.method) &&
            set(handle, CURLOPT_HTTPHEADER, headers.get()) &&
            set(handle, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size())) &&
            set(handle, CURLOPT_POSTFIELDS, request.body.c_str()));
}

/// The URL without the parts that may hold a secret. The transfer's own parser tells what they are; a text
/// that it refuses is not shown at all.
std::string show_url(const std::string& url) {
    const Url parts(curl_url(), curl_url_cleanup);
    if (parts == nullptr ||
        curl_url_set(parts.get(), CURLUPART_URL, url.c_str(), CURLU_GUESS_SCHEME) != CURLUE_OK) {
        return "(malformed)";
    }
    for (const CURLUPart part :
         {CURLUPART_USER, CURLUPART_PASSWORD, CURLUPART_OPTIONS, CURLUPART_QUERY, CURLUPART_FRAGMENT}) {
        (void)curl_url_set(parts.get(), part, nullptr, 0);  // fails only for a part that does not exist
    }
    char* text = nullptr;
    if (curl_url_get(parts.get(), CURLUPART_URL, &text, 0) != CURLUE_OK) {
        return "(malformed)";
    }
    const std::unique_ptr<char, void (*)(void*)> owner(text, curl_free);
    return text;
}

int transfer(const Request& request, std::string& response) {
    const HeaderList headers(curl_slist_append(nullptr, kJsonContent), curl_slist_free_all);
    const Handle handle = make_handle();
    if (handle == nullptr) {
        NM_LOG(Error) << "curl_easy_init failed.";
        return NM_ERR_HTTP_INIT;
    }
    std::string body;
    if (!set_common(handle, request, body) || !set_upload(handle, request, headers)) {
        NM_LOG(Error) << "curl_easy_setopt failed. url = " << show_url(request.url);
        return NM_ERR_HTTP_TRANSFER;
    }
    const CURLcode code = nm_curl_perform(handle.get(), request.tries, request.delay);
    long status = 0;
    (void)curl_easy_getinfo(handle.get(), CURLINFO_RESPONSE_CODE, &status);  // stays 0 without an answer
    NM_LOG(Debug) << "url = " << show_url(request.url);
    NM_LOG(Debug) << "response_code = " << status;
    if (code != CURLE_OK) {
        NM_LOG(Error) << "curl_easy_perform failed: " << curl_easy_strerror(code);
        return NM_ERR_HTTP_TRANSFER;
    }
    response = std::move(body);
    return NM_OK;
}

int run(const Request& request, std::string& response) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(transfer(request, response));
}

}  // namespace

CURLcode nm_curl_perform(CURL* handle, uint16_t tries, uint16_t delay) {
    CURLcode code = CURLE_FAILED_INIT;
    for (uint16_t attempt = 0; attempt < tries; ++attempt) {
        if (attempt > 0) {
            std::this_thread::sleep_for(std::chrono::seconds(delay != 0 ? delay : kDefaultDelay));
        }
        code = curl_easy_perform(handle);
        if (code == CURLE_OK) {
            break;
        }
    }
    return code;
}

int nm_curl_get(std::string url, std::string& response, int timeout, unsigned short tries,
                unsigned short delay) {
    return run({url, nullptr, "", timeout, tries, delay}, response);
}

int nm_curl_put(std::string url, std::string body, int timeout, unsigned short tries, unsigned short delay,
                std::string& response) {
    return run({url, "PUT", body, timeout, tries, delay}, response);
}

int nm_curl_post(std::string url, std::string body, int timeout, unsigned short tries, unsigned short delay,
                 std::string& response) {
    return run({url, "POST", body, timeout, tries, delay}, response);
}

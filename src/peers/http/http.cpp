// HTTP clients over libcurl.
#include "peers/http/http.h"

#include <sys/socket.h>

#include <chrono>
#include <memory>
#include <thread>

#include "log.h"
#include "peers/http/curl_library.h"
#include "result_codes.h"
#include "utils/call_notes.h"
#include "utils/call_stand_in.h"

namespace {

constexpr uint16_t kDefaultDelay = 3;
constexpr const char* kJsonContent = "Content-Type:application/json;charset=UTF-8";

using nm::CurlLibrary;

/// One request; no `method` is a GET, which has no body.
struct Request {
    std::string url;
    const char* method;
    std::string body;
    int timeout;
    uint16_t tries;
    uint16_t delay;
};

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

/// One transfer's handle and headers.
class Transfer {
public:
    explicit Transfer(const CurlLibrary& library)
        : curl_(library),
          handle_(library.easy_init()),
          headers_(library.slist_append(nullptr, kJsonContent)) {}
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;
    ~Transfer() {
        curl_.easy_cleanup(handle_);
        curl_.slist_free_all(headers_);
    }

    CURL* handle() const { return handle_; }
    bool set_all(const Request& request, std::string& response) const {
        return set_common(request, response) && set_upload(request);
    }

private:
    template <class Value>
    bool set(CURLoption option, Value value) const {
        return curl_.easy_setopt(handle_, option, value) == CURLE_OK;
    }

    bool set_common(const Request& request, std::string& response) const {
        return set(CURLOPT_URL, request.url.c_str()) && set(CURLOPT_PROTOCOLS_STR, "http,https") &&
               set(CURLOPT_TIMEOUT, static_cast<long>(request.timeout)) && set(CURLOPT_NOSIGNAL, 1L) &&
               set(CURLOPT_OPENSOCKETFUNCTION, open_socket) && set(CURLOPT_WRITEFUNCTION, append_body) &&
               set(CURLOPT_WRITEDATA, &response) && set(CURLOPT_HEADERFUNCTION, watch_header) &&
               set(CURLOPT_HEADERDATA, &response);
    }

    bool set_upload(const Request& request) const {
        return request.method == nullptr ||
               (headers_ != nullptr && set(CURLOPT_CUSTOMREQUEST, request.method) &&
                set(CURLOPT_HTTPHEADER, headers_) &&
                set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size())) &&
                set(CURLOPT_POSTFIELDS, request.body.c_str()));
    }

    const CurlLibrary& curl_;
    CURL* handle_;
    curl_slist* headers_;
};

/// The URL without the parts that may hold a secret. The transfer's own parser tells what they are; a text
/// that it refuses is not shown at all.
std::string show_url(const CurlLibrary& curl, const std::string& url) {
    const std::unique_ptr<CURLU, decltype(curl.url_cleanup)> parts(curl.url(), curl.url_cleanup);
    if (parts == nullptr ||
        curl.url_set(parts.get(), CURLUPART_URL, url.c_str(), CURLU_GUESS_SCHEME) != CURLUE_OK) {
        return "(malformed)";
    }
    for (const CURLUPart part :
         {CURLUPART_USER, CURLUPART_PASSWORD, CURLUPART_OPTIONS, CURLUPART_QUERY, CURLUPART_FRAGMENT}) {
        (void)curl.url_set(parts.get(), part, nullptr, 0);  // fails only for a part that does not exist
    }
    char* text = nullptr;
    if (curl.url_get(parts.get(), CURLUPART_URL, &text, 0) != CURLUE_OK) {
        return "(malformed)";
    }
    const std::unique_ptr<char, decltype(curl.free)> owner(text, curl.free);
    return text;
}

int transfer(const CurlLibrary& curl, const Request& request, std::string& response) {
    const Transfer one(curl);
    if (one.handle() == nullptr) {
        NM_LOG(Error) << "curl_easy_init failed.";
        return NM_ERR_HTTP_INIT;
    }
    std::string body;
    if (!one.set_all(request, body)) {
        NM_LOG(Error) << "curl_easy_setopt failed. url = " << show_url(curl, request.url);
        return NM_ERR_HTTP_TRANSFER;
    }
    if (const nm::CallStandIn& answer = nm::call_stand_in()) {
        const char* const method = request.method != nullptr ? request.method : "GET";
        const bool has_answer = answer({"http", show_url(curl, request.url), method, request.body}, response);
        return has_answer ? NM_OK : NM_ERR_HTTP_TRANSFER;
    }
    const nm::Step step("http", request.method != nullptr ? request.method : "GET",
                        nm::are_steps_watched() ? show_url(curl, request.url) : "");
    const CURLcode code = nm_curl_perform(one.handle(), request.tries, request.delay);
    long status = 0;
    (void)curl.easy_getinfo(one.handle(), CURLINFO_RESPONSE_CODE, &status);  // stays 0 without an answer
    NM_LOG(Debug) << "url = " << show_url(curl, request.url);
    NM_LOG(Debug) << "response_code = " << status;
    if (code != CURLE_OK) {
        NM_LOG(Error) << "curl_easy_perform failed: " << curl.easy_strerror(code);
        return step.result(NM_ERR_HTTP_TRANSFER);
    }
    response = std::move(body);
    return NM_OK;
}

int run(const Request& request, std::string& response) {
    NM_LOG(Debug) << "Enter";
    const CurlLibrary* const curl = nm::curl_library();
    return NM_EXIT(curl != nullptr ? transfer(*curl, request, response) : NM_ERR_HTTP_INIT);
}

}  // namespace

CURLcode nm_curl_perform(CURL* handle, uint16_t tries, uint16_t delay) {
    CURLcode code = CURLE_FAILED_INIT;
    const CurlLibrary* const curl = nm::curl_library();
    for (uint16_t attempt = 0; curl != nullptr && attempt < tries; ++attempt) {
        if (attempt > 0) {
            std::this_thread::sleep_for(std::chrono::seconds(delay != 0 ? delay : kDefaultDelay));
        }
        code = curl->easy_perform(handle);
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

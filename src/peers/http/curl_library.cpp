// Finding libcurl's functions at run time.
#include "peers/http/curl_library.h"

#include <dlfcn.h>

#include <mutex>

#include "log.h"

namespace {

constexpr const char* kName = "libcurl.so.4";

template <class Function>
bool find(void* library, const char* name, Function& function) {
    function = reinterpret_cast<Function>(dlsym(library, name));
    return function != nullptr;
}

bool find_all(void* library, nm::CurlLibrary& curl) {
    return find(library, "curl_global_init", curl.global_init) &&
           find(library, "curl_easy_init", curl.easy_init) &&
           find(library, "curl_easy_cleanup", curl.easy_cleanup) &&
           find(library, "curl_easy_setopt", curl.easy_setopt) &&
           find(library, "curl_easy_perform", curl.easy_perform) &&
           find(library, "curl_easy_getinfo", curl.easy_getinfo) &&
           find(library, "curl_easy_strerror", curl.easy_strerror) &&
           find(library, "curl_slist_append", curl.slist_append) &&
           find(library, "curl_slist_free_all", curl.slist_free_all) && find(library, "curl_url", curl.url) &&
           find(library, "curl_url_cleanup", curl.url_cleanup) &&
           find(library, "curl_url_get", curl.url_get) && find(library, "curl_url_set", curl.url_set) &&
           find(library, "curl_free", curl.free);
}

bool load(nm::CurlLibrary& curl) {
    void* const library = dlopen(kName, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr || !find_all(library, curl)) {
        NM_LOG(Error) << "No HTTP, " << kName << " cannot be loaded: " << dlerror();
        return false;
    }
    const CURLcode code = curl.global_init(CURL_GLOBAL_DEFAULT);
    if (code != CURLE_OK) {
        NM_LOG(Error) << "curl_global_init failed: " << curl.easy_strerror(code);
    }
    return code == CURLE_OK;
}

}  // namespace

namespace nm {

const CurlLibrary* curl_library() {
    static std::mutex mutex;
    static CurlLibrary curl;
    static bool loaded = false;
    const std::lock_guard lock(mutex);
    loaded = loaded || load(curl);
    return loaded ? &curl : nullptr;
}

}  // namespace nm

// libcurl, loaded at the first HTTP call: it and the thirty libraries that it draws in would take most of the
// start of every program that links the library, and few of them ever make such a call.
#pragma once

#include <curl/curl.h>

namespace nm {

/// The functions in use, each named as in libcurl without its prefix `curl_`.
struct CurlLibrary {
    decltype(&curl_global_init) global_init;
    decltype(&curl_easy_init) easy_init;
    decltype(&curl_easy_cleanup) easy_cleanup;
    decltype(&curl_easy_setopt) easy_setopt;
    decltype(&curl_easy_perform) easy_perform;
    decltype(&curl_easy_getinfo) easy_getinfo;
    decltype(&curl_easy_strerror) easy_strerror;
    decltype(&curl_slist_append) slist_append;
    decltype(&curl_slist_free_all) slist_free_all;
    decltype(&curl_url) url;
    decltype(&curl_url_cleanup) url_cleanup;
    decltype(&curl_url_get) url_get;
    decltype(&curl_url_set) url_set;
    decltype(&curl_free) free;
};

/// Loads libcurl and sets it up once for the process, whichever thread comes first; it is never unloaded,
/// since a caller may use it too. Null, with the reason logged, where that fails; the next call tries again.
const CurlLibrary* curl_library();

}  // namespace nm

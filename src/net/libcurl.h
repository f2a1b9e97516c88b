// libcurl.h - libcurl, loaded by the first request: a process that sends nothing does not pay for
// it and the libraries behind it.
#ifndef ZORV_NET_LIBCURL_H
#define ZORV_NET_LIBCURL_H

#include <memory>

#include <curl/curl.h>

namespace zorv {

// The functions of libcurl that are called here.
struct Libcurl {
    decltype(&curl_global_init) global_init;
    decltype(&curl_easy_init) easy_init;
    decltype(&curl_easy_setopt) easy_setopt;
    decltype(&curl_easy_perform) easy_perform;
    decltype(&curl_easy_getinfo) easy_getinfo;
    decltype(&curl_easy_cleanup) easy_cleanup;
    decltype(&curl_easy_strerror) easy_strerror;
    decltype(&curl_slist_append) slist_append;
    decltype(&curl_slist_free_all) slist_free_all;
};

// Those of the program's own libcurl where it has one, or wraps its calls; else of libcurl.so.4,
// which stays loaded. NULL, with an error line, when there is none; the next call tries again.
const Libcurl *libcurl();

// libcurl's words for the result of a request.
const char *result_words(int result);

// Owners of what such a library has made.
struct EasyCloser {
    void operator()(CURL *easy) const { libcurl()->easy_cleanup(easy); }
};
using Easy = std::unique_ptr<CURL, EasyCloser>;

struct HeadersCloser {
    void operator()(curl_slist *headers) const { libcurl()->slist_free_all(headers); }
};
using Headers = std::unique_ptr<curl_slist, HeadersCloser>;

} // namespace zorv

#endif

#include <zorv/curl_simple.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>

#include <curl/curl.h>
#include <jansson.h>

#include "core/log_gate.h"
#include "core/own.h"
#include "net/json_request.h"
#include "net/response.h"

using namespace zorv;

// The layout is part of the interface: callers are built against it.
static_assert(sizeof(curl_simple_response) == 4 * sizeof(void *));
static_assert(offsetof(curl_simple_response, body) == sizeof(void *));
static_assert(offsetof(curl_simple_response, received) == 3 * sizeof(void *));

const char *const curl_simple_method_str[3] = {"GET", "POST", "PUT"};

const char *const curl_simple_doh_providers[3] = {
    "https://dns.google/dns-query",
    "https://cloudflare-dns.com/dns-query",
    nullptr,
};

namespace {

constexpr char kModule[] = "curl_simple";
constexpr long kTimeout = 5; // seconds, for a whole transfer

// Numbers of curl_simple_method_str.
enum Method { kGet, kPost, kPut };

struct Request {
    const char *url;
    unsigned flags;
    curl_slist *headers;
    const char *data;
    long length;
};

using Easy = std::unique_ptr<CURL, Closer<curl_easy_cleanup>>;
using Headers = std::unique_ptr<curl_slist, Closer<curl_slist_free_all>>;

// Holds SIGPIPE back in this thread, and takes away one that was raised meanwhile. CURLOPT_NOSIGNAL
// switches off libcurl's own care for it, and TLS libraries that write with write() raise it when
// the peer has gone.
class PipeSignalHeld {
public:
    PipeSignalHeld()
    {
        sigset_t pending;
        sigpending(&pending);
        was_pending_ = sigismember(&pending, SIGPIPE) == 1;
        const sigset_t pipe = pipe_signal();
        pthread_sigmask(SIG_BLOCK, &pipe, &old_);
    }
    PipeSignalHeld(const PipeSignalHeld &) = delete;
    PipeSignalHeld &operator=(const PipeSignalHeld &) = delete;
    ~PipeSignalHeld()
    {
        const sigset_t pipe = pipe_signal();
        constexpr timespec kAtOnce = {};
        if (!was_pending_)
            sigtimedwait(&pipe, nullptr, &kAtOnce);
        pthread_sigmask(SIG_SETMASK, &old_, nullptr);
    }

private:
    static sigset_t pipe_signal()
    {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, SIGPIPE);
        return set;
    }

    sigset_t old_;
    bool was_pending_;
};

// libcurl's write callback. What is beyond the limit counts as taken, so that the transfer goes on.
size_t collect_body(char *bytes, size_t size, size_t count, void *user)
{
    auto &response = *static_cast<curl_simple_response *>(user);
    buffer *const body = response.body;
    const size_t n = size * count;
    response.received += n;
    const size_t room = response.max_size - std::min(response.max_size, body->length(body));
    if (n <= room)
        return body->append(body, bytes, n);
    body->append(body, bytes, room);
    return n;
}

// Of what libcurl copies, only memory can be short; a request without it would be another request.
bool is_set(CURLcode result)
{
    return result != CURLE_OUT_OF_MEMORY;
}

CURLcode set_options(CURL *easy, Method method, const Request &request, char *error,
                     curl_simple_response *response)
{
    if (!is_set(curl_easy_setopt(easy, CURLOPT_URL, request.url)) ||
        !is_set(curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, curl_simple_method_str[method])))
        return CURLE_OUT_OF_MEMORY;
    curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L);
    if (request.headers)
        curl_easy_setopt(easy, CURLOPT_HTTPHEADER, request.headers);
    if (request.data && request.length > 0) {
        curl_easy_setopt(easy, CURLOPT_POSTFIELDS, request.data);
        curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE, request.length);
    }
    curl_easy_setopt(easy, CURLOPT_TIMEOUT, kTimeout);
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, error);
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    // On purpose: without a response libcurl's own writer prints the body, for tools that fetch.
    if (response) {
        curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, collect_body);
        curl_easy_setopt(easy, CURLOPT_WRITEDATA, response);
    }
    return CURLE_OK;
}

// NULL stands for the system's resolver.
CURLcode perform_with(CURL *easy, const char *provider)
{
    if (!is_set(curl_easy_setopt(easy, CURLOPT_DOH_URL, provider)))
        return CURLE_OUT_OF_MEMORY;
    return curl_easy_perform(easy);
}

CURLcode perform(CURL *easy, unsigned flags)
{
    if (!(flags & CURL_SIMPLE_DOH))
        return curl_easy_perform(easy);
    for (const char *const *provider = curl_simple_doh_providers; *provider; ++provider) {
        const CURLcode result = perform_with(easy, *provider);
        if (result != CURLE_COULDNT_RESOLVE_HOST)
            return result;
    }
    return flags & CURL_SIMPLE_DOH_FALLBACK ? perform_with(easy, nullptr)
                                            : CURLE_COULDNT_RESOLVE_HOST;
}

int curl_simple(Method method, const Request &request, curl_simple_response *response)
{
    const PipeSignalHeld no_pipe_signal; // until behind the clean-up, which may write
    char error[CURL_ERROR_SIZE] = "";
    const Easy easy(curl_easy_init());
    if (!easy) {
        log_debug("Failed to init request");
        return CURLE_FAILED_INIT;
    }
    CURLcode result = set_options(easy.get(), method, request, error, response);
    if (result == CURLE_OK)
        result = perform(easy.get(), request.flags);
    if (result != CURLE_OK)
        log_debug("%s '%s' failed: [%d] %s", curl_simple_method_str[method], request.url, result,
                  error);
    if (response)
        curl_easy_getinfo(easy.get(), CURLINFO_RESPONSE_CODE, &response->status);
    return result;
}

int curl_simple_json(Method method, const char *url, unsigned flags, const json_t *body,
                     const char *text, curl_simple_response *response)
{
    const Headers headers(curl_slist_append(nullptr, "Content-Type: application/json"));
    if (!headers) {
        log_error("Failed to add HTTP header");
        return CURLE_OUT_OF_MEMORY;
    }
    Text made;
    if (body && !text) {
        made.reset(json_dumps(body, JSON_COMPACT));
        if (!made) {
            log_error("Failed to dump json payload object");
            return CURLE_OUT_OF_MEMORY;
        }
        text = made.get();
    }
    const long length = text ? static_cast<long>(strlen(text)) : 0;
    return curl_simple(method, {url, flags, headers.get(), text, length}, response);
}

} // namespace

int zorv::post_json(const char *url, unsigned flags, const json_t *body, const char *text,
                    curl_simple_response *resp)
{
    return curl_simple_json(kPost, url, flags, body, text, resp);
}

curl_simple_response *curl_simple_response_init(size_t max_size)
{
    Response response(static_cast<curl_simple_response *>(calloc(1, sizeof(curl_simple_response))));
    if (!response) {
        log_error("Failed to allocate curl_simple_response");
        return nullptr;
    }
    response->body = buffer_create();
    if (!response->body) {
        log_error("Failed to allocate response buffer");
        return nullptr;
    }
    response->max_size = max_size;
    return response.release();
}

void curl_simple_response_free(curl_simple_response *resp)
{
    if (!resp)
        return;
    buffer_destroy(resp->body);
    free(resp);
}

int curl_simple_get(const char *url, unsigned flags, curl_slist *headers,
                    curl_simple_response *resp)
{
    return curl_simple(kGet, {url, flags, headers, nullptr, 0}, resp);
}

int curl_simple_post(const char *url, unsigned flags, curl_slist *headers, const char *data,
                     long len, curl_simple_response *resp)
{
    return curl_simple(kPost, {url, flags, headers, data, len}, resp);
}

int curl_simple_put(const char *url, unsigned flags, curl_slist *headers, const char *data,
                    long len, curl_simple_response *resp)
{
    return curl_simple(kPut, {url, flags, headers, data, len}, resp);
}

int curl_simple_post_json(const char *url, unsigned flags, json_t *body, curl_simple_response *resp)
{
    return curl_simple_json(kPost, url, flags, body, nullptr, resp);
}

int curl_simple_put_json(const char *url, unsigned flags, json_t *body, curl_simple_response *resp)
{
    return curl_simple_json(kPut, url, flags, body, nullptr, resp);
}

#include <zorv/curl_simple.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <jansson.h>
#include <strings.h>

#include "core/json_text.h"
#include "core/log_gate.h"
#include "core/own.h"
#include "core/pipe_signal.h"
#include "net/libcurl.h"
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

// Sets options until one fails, whose result it keeps: without it the request would be another.
class Options {
public:
    Options(const Libcurl &curl, CURL *easy) : curl_(curl), easy_(easy) {}

    template <class Value>
    void set(CURLoption option, Value value)
    {
        if (result_ == CURLE_OK)
            result_ = curl_.easy_setopt(easy_, option, value);
    }

    // For an option that older releases of libcurl lack. Returns whether this one has it.
    template <class Value>
    bool set_newer(int option, Value value)
    {
        set(static_cast<CURLoption>(option), value);
        if (result_ != CURLE_UNKNOWN_OPTION)
            return true;
        result_ = CURLE_OK;
        return false;
    }

    CURLcode result() const { return result_; }

private:
    const Libcurl &curl_;
    CURL *easy_;
    CURLcode result_ = CURLE_OK;
};

// Options by their numbers, as the headers of older releases lack the new ones and those of newer
// releases warn of the old ones.
constexpr int kProtocols = 181, kRedirectProtocols = 182;             // until 7.85: bits,
constexpr int kProtocolNames = 10318, kRedirectProtocolNames = 10319; // then texts
constexpr int kQuickExit = 322;                                       // since 7.87

// Only HTTP: a URL or a redirect may come from elsewhere, and "file:" would read the unit's own
// files. A redirect leads from https to nothing else.
void set_protocols(Options &options, const char *url)
{
    const bool is_secure = url && strncasecmp(url, "https:", strlen("https:")) == 0;
    if (!options.set_newer(kProtocolNames, "http,https"))
        options.set(static_cast<CURLoption>(kProtocols), long{CURLPROTO_HTTP | CURLPROTO_HTTPS});
    if (!options.set_newer(kRedirectProtocolNames, is_secure ? "https" : "http,https"))
        options.set(static_cast<CURLoption>(kRedirectProtocols),
                    long{is_secure ? CURLPROTO_HTTPS : CURLPROTO_HTTP | CURLPROTO_HTTPS});
}

CURLcode set_options(Options options, Method method, const Request &request, char *error,
                     curl_simple_response *response)
{
    options.set(CURLOPT_URL, request.url);
    options.set(CURLOPT_CUSTOMREQUEST, curl_simple_method_str[method]);
    options.set(CURLOPT_FOLLOWLOCATION, 1L);
    options.set(CURLOPT_SSL_VERIFYPEER, 1L);
    options.set(CURLOPT_SSL_VERIFYHOST, 2L);
    if (request.headers)
        options.set(CURLOPT_HTTPHEADER, request.headers);
    if (request.data && request.length > 0) {
        options.set(CURLOPT_POSTFIELDS, request.data);
        options.set(CURLOPT_POSTFIELDSIZE, request.length);
    }
    options.set(CURLOPT_TIMEOUT, kTimeout);
    options.set(CURLOPT_ERRORBUFFER, error);
    options.set(CURLOPT_NOSIGNAL, 1L);
    // On purpose: without a response libcurl's own writer prints the body; kept for callers built
    // against it.
    if (response) {
        options.set(CURLOPT_WRITEFUNCTION, collect_body);
        options.set(CURLOPT_WRITEDATA, response);
    }
    options.set(CURLOPT_POSTREDIR, long{CURL_REDIR_POST_ALL}); // with its body, too
    set_protocols(options, request.url);
    options.set(CURLOPT_PROXY, ""); // of the environment none: what configures a unit is in files
    options.set_newer(kQuickExit, 1L); // a resolver that does not answer is not waited for
    return options.result();
}

// NULL stands for the system's resolver.
CURLcode perform_with(const Libcurl &curl, CURL *easy, const char *provider)
{
    const CURLcode result = curl.easy_setopt(easy, CURLOPT_DOH_URL, provider);
    return result == CURLE_OK ? curl.easy_perform(easy) : result;
}

CURLcode perform(const Libcurl &curl, CURL *easy, unsigned flags)
{
    if (!(flags & CURL_SIMPLE_DOH))
        return curl.easy_perform(easy);
    for (const char *const *provider = curl_simple_doh_providers; *provider; ++provider) {
        const CURLcode result = perform_with(curl, easy, *provider);
        if (result != CURLE_COULDNT_RESOLVE_HOST)
            return result;
    }
    return flags & CURL_SIMPLE_DOH_FALLBACK ? perform_with(curl, easy, nullptr)
                                            : CURLE_COULDNT_RESOLVE_HOST;
}

int curl_simple(Method method, const Request &request, curl_simple_response *response)
{
    // CURLOPT_NOSIGNAL switches off libcurl's own care, and TLS libraries that write with write()
    // raise SIGPIPE when the peer has gone. Held until behind the clean-up, which may write.
    const PipeSignalHeld no_pipe_signal;
    char error[CURL_ERROR_SIZE] = "";
    const Libcurl *const curl = libcurl();
    const Easy easy(curl ? curl->easy_init() : nullptr);
    if (!easy) {
        log_debug("Failed to init request");
        return CURLE_FAILED_INIT;
    }
    CURLcode result = set_options({*curl, easy.get()}, method, request, error, response);
    if (result == CURLE_OK)
        result = perform(*curl, easy.get(), request.flags);
    if (result != CURLE_OK)
        log_debug("%s '%s' failed: [%d] %s", curl_simple_method_str[method], request.url, result,
                  error);
    if (response)
        curl->easy_getinfo(easy.get(), CURLINFO_RESPONSE_CODE, &response->status);
    return result;
}

int curl_simple_json(Method method, const char *url, unsigned flags, const json_t *body,
                     curl_simple_response *response)
{
    const Libcurl *const curl = libcurl();
    const Headers headers(curl ? curl->slist_append(nullptr, "Content-Type: application/json")
                               : nullptr);
    if (curl && !headers) {
        log_error("Failed to add HTTP header");
        return CURLE_OUT_OF_MEMORY;
    }
    const Text text = dump_json(body, JSON_COMPACT);
    if (body && !text) {
        log_error("Failed to dump json payload object");
        return CURLE_OUT_OF_MEMORY;
    }
    const long length = text ? static_cast<long>(strlen(text.get())) : 0;
    return curl_simple(method, {url, flags, headers.get(), text.get(), length}, response);
}

} // namespace

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
    return curl_simple_json(kPost, url, flags, body, resp);
}

int curl_simple_put_json(const char *url, unsigned flags, json_t *body, curl_simple_response *resp)
{
    return curl_simple_json(kPut, url, flags, body, resp);
}

// http.cpp - one request with the library's HTTP client: what it fetched, or what became of it.
#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <zorv/curl_simple.h>
#include <zorv/log.h>

#include "base/cli.h"
#include "base/text_file.h"
#include "core/own.h"
#include "net/libcurl.h"

namespace ctl {
namespace {

constexpr size_t kMostKept = size_t{1} << 20; // unless told

using Response = std::unique_ptr<curl_simple_response, zorv::Closer<curl_simple_response_free>>;

struct HttpArgs {
    std::string url;
    std::vector<std::string> headers;
    bool doh = false, fallback = false, trace = false, report = false;
    std::optional<size_t> max;
    std::string data;         // of POST and PUT
    std::string output = "-"; // a file, or nowhere but the reply
};

// What a request can come to, the rest has its number alone.
#define RESULT(name)                                                                               \
    {                                                                                              \
        CURLE_##name, "CURLE_" #name                                                               \
    }
constexpr struct {
    CURLcode code;
    char name[40];
} kResults[] = {
    RESULT(OK),
    RESULT(UNSUPPORTED_PROTOCOL),
    RESULT(FAILED_INIT),
    RESULT(URL_MALFORMAT),
    RESULT(COULDNT_RESOLVE_PROXY),
    RESULT(COULDNT_RESOLVE_HOST),
    RESULT(COULDNT_CONNECT),
    RESULT(WEIRD_SERVER_REPLY),
    RESULT(REMOTE_ACCESS_DENIED),
    RESULT(HTTP2),
    RESULT(PARTIAL_FILE),
    RESULT(WRITE_ERROR),
    RESULT(OUT_OF_MEMORY),
    RESULT(OPERATION_TIMEDOUT),
    RESULT(SSL_CONNECT_ERROR),
    RESULT(FILE_COULDNT_READ_FILE),
    RESULT(TOO_MANY_REDIRECTS),
    RESULT(GOT_NOTHING),
    RESULT(SEND_ERROR),
    RESULT(RECV_ERROR),
    RESULT(SSL_CIPHER),
    RESULT(PEER_FAILED_VERIFICATION),
    RESULT(BAD_CONTENT_ENCODING),
    RESULT(SSL_CACERT_BADFILE),
    RESULT(HTTP2_STREAM),
};
#undef RESULT

std::string result_name(int result)
{
    for (const auto &row : kResults)
        if (row.code == result)
            return row.name;
    return "CURLcode " + std::to_string(result);
}

// A list over the lines.
std::vector<curl_slist> make_headers(std::vector<std::string> &lines)
{
    std::vector<curl_slist> headers(lines.size());
    for (size_t i = 0; i < lines.size(); ++i)
        headers[i] = {lines[i].data(), i + 1 < lines.size() ? &headers[i + 1] : nullptr};
    return headers;
}

struct Request {
    const char *method; // a word of curl_simple_method_str
    const HttpArgs &args;
    curl_slist *headers;
    std::string data;
};

bool is_get(const Request &request)
{
    return request.method == curl_simple_method_str[0];
}

struct Attempt {
    const char *resolver; // "doh" or "system"
    int result;
    long long milliseconds;
    Response response;
};

int send(const Request &request, unsigned flags, curl_simple_response *response)
{
    const char *const url = request.args.url.c_str();
    const char *const data = request.data.data();
    const long length = static_cast<long>(request.data.size());
    if (is_get(request))
        return curl_simple_get(url, flags, request.headers, response);
    if (request.method == curl_simple_method_str[1])
        return curl_simple_post(url, flags, request.headers, data, length, response);
    return curl_simple_put(url, flags, request.headers, data, length, response);
}

Attempt attempt(const Request &request, unsigned flags)
{
    using namespace std::chrono;
    Response response(curl_simple_response_init(request.args.max.value_or(kMostKept)));
    if (!response)
        throw std::bad_alloc();
    const auto begin = steady_clock::now();
    const int result = send(request, flags, response.get());
    const auto taken = duration_cast<milliseconds>(steady_clock::now() - begin);
    return {flags ? "doh" : "system", result, taken.count(), std::move(response)};
}

// The library's own fallback, in two calls: that tells which resolver served.
std::vector<Attempt> attempt_all(const Request &request)
{
    std::vector<Attempt> attempts;
    attempts.push_back(attempt(request, request.args.doh ? CURL_SIMPLE_DOH : 0));
    if (request.args.fallback && attempts.back().result == CURLE_COULDNT_RESOLVE_HOST)
        attempts.push_back(attempt(request, 0));
    return attempts;
}

void show_trace(const std::vector<Attempt> &attempts, Reply &reply)
{
    Value list = Value::list();
    for (const Attempt &one : attempts)
        list.add(Value::object()
                     .set("resolver", one.resolver)
                     .set("result", one.result)
                     .set("name", result_name(one.result))
                     .set("ms", one.milliseconds));
    reply.table("attempts", list, {"resolver", "result", "name", "ms"});
    reply.line("");
}

std::string body_of(const Attempt &attempt)
{
    buffer *const bytes = attempt.response->body;
    return {reinterpret_cast<char *>(bytes->data(bytes)), bytes->length(bytes)};
}

void show_report(const Request &request, const Attempt &last, Reply &reply)
{
    const bool resolved = last.result != CURLE_COULDNT_RESOLVE_HOST;
    reply.pairs(Value::object()
                    .set("method", request.method)
                    .set("url", request.args.url)
                    .set("status", last.response->status)
                    .set("result", last.result)
                    .set("name", result_name(last.result))
                    .set("meaning", zorv::result_words(last.result))
                    .set("received", last.response->received)
                    .set("kept", body_of(last).size())
                    .set("resolver", resolved ? last.resolver : nullptr));
}

Exit exit_of(const Attempt &last)
{
    if (last.result != CURLE_OK)
        return Exit::failed;
    return last.response->status >= 400 ? Exit::no : Exit::done;
}

Failure failure_of(const HttpArgs &args, const Attempt &last)
{
    if (last.result != CURLE_OK)
        return {Exit::failed, "network", args.url + ": " + zorv::result_words(last.result)};
    return {Exit::no, format("%s: status %ld", args.url.c_str(), last.response->status)};
}

// A body is not given for the whole one when it is not, unless so much of it was asked for.
void expect_whole(const HttpArgs &args, const Attempt &last)
{
    if (!args.max && last.response->received > kMostKept)
        throw Failure(Exit::failed, "too-large",
                      format("%s: the body has %zu bytes, and %zu are kept without --max",
                             args.url.c_str(), last.response->received, kMostKept));
}

void show(const Request &request, const Attempt &last, Reply &reply)
{
    const HttpArgs &args = request.args;
    const std::string body = body_of(last);
    const bool alone = is_get(request) && !args.report && !args.trace && !reply.json();
    reply.exit = exit_of(last);
    if (!alone)
        show_report(request, last, reply);
    else if (reply.exit != Exit::done)
        throw failure_of(args, last);
    const bool to_file = reply.exit == Exit::done && args.output != "-";
    if (to_file || alone)
        expect_whole(args, last);
    if (to_file) {
        write_file(args.output, body);
        reply.document.set("file", args.output);
    } else if (alone) {
        reply.bytes(body);
    } else {
        reply.document.set("body", body);
        if (body.empty())
            return;
        reply.line("");
        reply.bytes(body);
        reply.line("");
    }
}

void request(const char *method, const HttpArgs &args, Reply &reply)
{
    if (args.trace)
        libzorv_log_level = std::max(libzorv_log_level, 8); // libcurl's words on a failure
    const bool is_file = args.data.starts_with('@');
    std::vector<std::string> lines = args.headers;
    std::vector<curl_slist> headers = make_headers(lines);
    const Request made = {method, args, headers.empty() ? nullptr : headers.data(),
                          is_file ? read_file(args.data.substr(1)) : args.data};
    const std::vector<Attempt> attempts = attempt_all(made);
    if (args.trace)
        show_trace(attempts, reply);
    show(made, attempts.back(), reply);
}

template <int Method>
void run(const HttpArgs &args, Reply &reply)
{
    request(curl_simple_method_str[Method], args, reply);
}

// GET takes all but the last, the others all but the first.
constexpr Option kOptions[] = {
    option<&HttpArgs::report>("--report", "Show what became of the request in front of the body"),
    option<&HttpArgs::url>("URL", "Where to").required(),
    option<&HttpArgs::headers>("-H,--header", "A header line; may be repeated"),
    option<&HttpArgs::output>("-o,--output",
                              "Write the body into this file, and not to standard output"),
    option<&HttpArgs::max>("--max", "Bytes of the body to keep, 1048576 unless given"),
    option<&HttpArgs::doh>("--doh", "Look the host up by the DNS-over-HTTPS resolvers"),
    option<&HttpArgs::fallback>("--doh-fallback", "Then by the system's when they do not know it")
        .needs("--doh"),
    option<&HttpArgs::trace>("--trace", "Show each attempt, and the library's debug messages"),
    option<&HttpArgs::data>("--data", "The body, or @ and a file that holds it"),
};

constexpr Verb kVerbs[] = {
    verb<run<0>>("get", "Fetch a document, and print it",
                 "zorvctl http get https://cloud.example/status -H 'Accept: text/plain'",
                 std::span(kOptions).first(std::size(kOptions) - 1)),
    verb<run<1>>("post", "Send data with POST, and show what became of it",
                 "zorvctl http post https://cloud.example/in --data @report.json "
                 "--header 'Content-Type: application/json'",
                 std::span(kOptions).subspan(1)),
    verb<run<2>>("put", "Send data with PUT",
                 "zorvctl http put https://cloud.example/name --data office",
                 std::span(kOptions).subspan(1)),
};

} // namespace

extern const Family http_family = {
    "http", "Send one HTTP request with the library's client", {kVerbs}};

} // namespace ctl

#include <zorv/curl_simple.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <curl/curl.h>

#include "support/cloud_host.h"
#include "support/device.h"
#include "support/json.h"

using cloud::Conduct;
using cloud::Identity;
using cloud::Lookup;

namespace {

constexpr size_t kAll = SIZE_MAX;

using Headers = std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)>;
using Response = std::unique_ptr<curl_simple_response, decltype(&curl_simple_response_free)>;

using CurlSimple = Device;

Response make_response(size_t max_size = kAll)
{
    return {curl_simple_response_init(max_size), curl_simple_response_free};
}

std::string kept(const Response &response)
{
    buffer *body = response->body;
    return {reinterpret_cast<char *>(body->data(body)), body->length(body)};
}

int get(const std::string &url, const Response &response, unsigned flags = 0)
{
    return curl_simple_get(url.c_str(), flags, nullptr, response.get());
}

int post(const std::string &url, const char *data, long length)
{
    return curl_simple_post(url.c_str(), 0, nullptr, data, length, make_response().get());
}

// What a GET came to: its result, the status, the body, and the sites that were asked.
std::string fetched(CloudHost &host, const char *url, unsigned flags = 0)
{
    const Response response = make_response();
    const int result = curl_simple_get(url, flags, nullptr, response.get());
    std::string text = std::to_string(result) + " " + std::to_string(response->status) + " ";
    std::string last;
    text += kept(response);
    for (const auto &request : host.received()) {
        text += request.host == last ? "" : " <" + request.host;
        last = request.host;
    }
    return text;
}

} // namespace

TEST_F(CurlSimple, SendsTheMethodTheHeadersAndTheBody)
{
    const std::string to = "Location: https://other.test/in\r\n";
    CloudHost host({.sites = {{"cloud.test"}, {"other.test"}},
                    .answers = {{.path = "/in"},
                                {.path = "/302", .status = 302, .headers = to},
                                {.path = "/307", .status = 307, .headers = to}}});
    // A request: where to, its length, type, word of what it takes, header of its own, and body.
    const auto sent = [&host](int result) {
        std::string text = std::to_string(result);
        for (const auto &request : host.received()) {
            text += " " + request.method + " " + request.host + request.path;
            for (const char *const name : {"Content-Length", "Content-Type", "Accept", "X-Unit"})
                text += " " + (request.header(name).empty() ? "-" : request.header(name));
            text += " " + request.body;
        }
        return text;
    };
    const std::string in = "https://cloud.test/in", form = " application/x-www-form-urlencoded";
    const std::string bare = " - - */* - ", at = " cloud.test/in";
    curl_slist *list = curl_slist_append(nullptr, "X-Unit: 7");
    curl_slist_append(list, "Accept:");
    curl_slist_append(list, "Content-Type: text/plain");
    const Headers headers(list, curl_slist_free_all);
    EXPECT_EQ(sent(get(in, make_response())), "0 GET" + at + bare);
    EXPECT_EQ(sent(post(in, "a=b", 3)), "0 POST" + at + " 3" + form + " */* - a=b");
    const std::string part("a\0b", 3); // a body may hold a NUL
    EXPECT_EQ(sent(post(in, "a\0bcd", 3)), "0 POST" + at + " 3" + form + " */* - " + part);
    EXPECT_EQ(sent(post(in, "a=b", 0)), "0 POST" + at + bare);
    EXPECT_EQ(sent(post(in, "a=b", -1)), "0 POST" + at + bare);
    EXPECT_EQ(sent(post(in, nullptr, 3)), "0 POST" + at + bare);
    EXPECT_EQ(sent(curl_simple_put(in.c_str(), 0, list, "text", 4, make_response().get())),
              "0 PUT" + at + " 4 text/plain - 7 text");
    EXPECT_EQ(sent(curl_simple_put(in.c_str(), 0, nullptr, nullptr, 0, make_response().get())),
              "0 PUT" + at + bare);
    EXPECT_STREQ(list->data, "X-Unit: 7");

    const Json json = loaded(R"({"b": 1, "a": [true, "é"]})"), word = loaded("\"no container\"");
    const std::string made = R"( 23 application/json */* - {"b":1,"a":[true,"é"]})";
    for (const auto &[send, method] : {std::pair{&curl_simple_post_json, "0 POST" + at},
                                       {&curl_simple_put_json, "0 PUT" + at}}) {
        EXPECT_EQ(sent(send(in.c_str(), 0, json.get(), make_response().get())), method + made);
        EXPECT_EQ(sent(send(in.c_str(), 0, nullptr, make_response().get())),
                  method + " - application/json */* - ");
        EXPECT_EQ(send(in.c_str(), 0, word.get(), nullptr), CURLE_OUT_OF_MEMORY);
    }
    EXPECT_EQ(json->refcount, 1U);
    EXPECT_THAT(
        logged(),
        Contains("[error] curl_simple.curl_simple_json(): Failed to dump json payload object")
            .Times(2));

    // A redirect takes the word along, and the body where HTTP says so.
    const std::string body = " 3" + form + " */* - a=b";
    EXPECT_EQ(sent(post("https://cloud.test/302", "a=b", 3)),
              "0 POST cloud.test/302" + body + " POST other.test/in" + bare);
    EXPECT_EQ(sent(post("https://cloud.test/307", "a=b", 3)),
              "0 POST cloud.test/307" + body + " POST other.test/in" + body);
}

TEST_F(CurlSimple, KeepsOfTheBodyWhatTheLimitAllows)
{
    const std::string text = "0123456789abcdefghijklmno", large(3 << 20, 'y');
    CloudHost host({.sites = {{"cloud.test"}},
                    .answers = {{.path = "/text", .body = text},
                                {.path = "/large", .body = large},
                                {.path = "/a", .status = 201, .body = "abcde"},
                                {.path = "/error", .status = 500, .body = "oh"}}});
    for (const auto &[path, body] : {std::pair{"/text", text}, {"/large", large}})
        for (const size_t limit : {size_t{0}, size_t{24}, size_t{25}, size_t{100001}, kAll}) {
            const Response response = make_response(limit);
            EXPECT_EQ(get(std::string("https://cloud.test") + path, response), CURLE_OK);
            EXPECT_EQ(response->received, body.size());
            EXPECT_TRUE(kept(response) == body.substr(0, limit)) << path << limit;
        }

    const Response response = make_response(9); // one that is used again goes on
    const struct {
        const char *url;
        size_t limit;
        const char *got; // result, status, bytes that came, body
    } rows[] = {
        {"https://cloud.test/a", 9, "0 201 5 abcde"},
        {"https://cloud.test/error", 9, "0 500 7 abcdeoh"},
        {"https://cloud.test/a", 9, "0 201 12 abcdeohab"},
        {"https://cloud.test/a", 3, "0 201 17 abcdeohab"}, // below what is there
        {"https://none.test/", 3, "6 0 17 abcdeohab"},
    };
    EXPECT_EQ(response->status, 0);
    for (const auto &row : rows) {
        response->max_size = row.limit;
        std::ostringstream got;
        got << get(row.url, response) << ' ' << response->status << ' ' << response->received << ' '
            << kept(response);
        EXPECT_EQ(got.str(), row.got);
    }
    curl_simple_response_free(nullptr);

    testing::internal::CaptureStdout(); // without a response the body is printed
    EXPECT_EQ(curl_simple_get("https://cloud.test/text", 0, nullptr, nullptr), CURLE_OK);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), text);
}

// What a peer or a resolver gives, at once: the result, what had come before it, and who was asked.
TEST_F(CurlSimple, EveryPeerHasItsResult)
{
    const std::string first = cloud::kResolvers[0], second = cloud::kResolvers[1];
    const std::string here = "127.0.0.1";
    CloudHost host(
        {.sites = {{"cloud.test"},
                   {"garbage.test", Identity::garbage},
                   {"reset.test", Identity::reset},
                   {"untrusted.test", Identity::untrusted},
                   {"expired.test", Identity::expired},
                   {"misnamed.test", Identity::misnamed},
                   {"both.test", Identity::trusted, false},
                   {"refused.test", Identity::trusted, false},
                   {"nonsense.test", Identity::trusted, false}},
         .names = {{"both.test", here},
                   {"refused.test", here, first, Lookup::refused},
                   {"refused.test", here, second},
                   {"nonsense.test", here, first, Lookup::nonsense},
                   {"nonsense.test", here, second},
                   {"closed.test", "127.0.0.2", first},
                   {"closed.test", here, second}},
         .answers = {
             {.path = "/a", .body = "a"},
             {.path = "/reset", .body = "0123456789", .conduct = Conduct::reset},
             {.path = "/hang-up", .conduct = Conduct::hang_up},
             {.path = "/short",
              .body = "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nabc",
              .conduct = Conduct::raw},
             {.path = "/to-nowhere", .status = 302, .headers = "Location: https://none.test/\r\n"},
             {.path = "/to-gopher", .status = 302, .headers = "Location: gopher://h/\r\n"},
         }});
    const std::string asked = " <" + first + " <" + second;
    const std::string said = "[debug] curl_simple.curl_simple(): GET '";
    const char *const no_name = "no alternative certificate subject name matches";
    const struct {
        const char *url;
        unsigned flags;
        int result;
        std::string got;
        const char *reason = "";
    } rows[] = {
        {"", 0, CURLE_URL_MALFORMAT, "0 "},
        {"https://cloud.test:0x1/", 0, CURLE_URL_MALFORMAT, "0 "},
        {"nonsense://cloud.test/", 0, CURLE_UNSUPPORTED_PROTOCOL, "0 "},
        {"https://none.test/", 0, CURLE_COULDNT_RESOLVE_HOST, "0 "},
        {"https://cloud.test:1/", 0, CURLE_COULDNT_CONNECT, "0 "},
        {"https://garbage.test/", 0, CURLE_SSL_CONNECT_ERROR, "0 "},
        {"https://reset.test/", 0, CURLE_SSL_CONNECT_ERROR, "0 "},
        {"https://untrusted.test/", 0, CURLE_PEER_FAILED_VERIFICATION, "0 ", "local issuer"},
        {"https://expired.test/", 0, CURLE_PEER_FAILED_VERIFICATION, "0 ", "has expired"},
        {"https://misnamed.test/", 0, CURLE_PEER_FAILED_VERIFICATION, "0 ", no_name},
        {"https://127.0.0.1/", 0, CURLE_PEER_FAILED_VERIFICATION, "0 ", no_name},
        {"https://cloud.test/reset", 0, CURLE_RECV_ERROR, "200 01234 <cloud.test"},
        {"https://cloud.test/short", 0, CURLE_PARTIAL_FILE, "200 abc <cloud.test"},
        {"https://cloud.test/to-nowhere", 0, CURLE_COULDNT_RESOLVE_HOST, "302  <cloud.test"},
        {"https://cloud.test/to-gopher", 0, CURLE_UNSUPPORTED_PROTOCOL, "302  <cloud.test"},
        {"https://cloud.test/none", 0, CURLE_OK, "404  <cloud.test"},
        // With flag 1 the resolvers are asked in their order, with 2 too then the system's.
        {"https://cloud.test/a", 2, CURLE_OK, "200 a <cloud.test"},
        {"https://cloud.test/a", 1, CURLE_COULDNT_RESOLVE_HOST, "0 " + asked},
        {"https://cloud.test/a", 3, CURLE_OK, "200 a" + asked + " <cloud.test"},
        {"https://none.test/a", 3, CURLE_COULDNT_RESOLVE_HOST, "0 " + asked},
        {"https://both.test/a", 0, CURLE_COULDNT_RESOLVE_HOST, "0 "},
        {"https://both.test/a", ~0U, CURLE_OK, "200 a <" + first + " <both.test"},
        {"https://refused.test/a", 1, CURLE_OK, "200 a" + asked + " <refused.test"},
        {"https://nonsense.test/a", 1, CURLE_OK, "200 a" + asked + " <nonsense.test"},
        {"https://closed.test/a", 3, CURLE_COULDNT_CONNECT, "0  <" + first}, // resolved is resolved
    };
    libzorv_log_level = 8;
    fetched(host, "https://cloud.test/a"); // libraries open what they keep
    const int descriptors = open_descriptors();
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::Message() << row.url << " " << row.flags);
        EXPECT_EQ(fetched(host, row.url, row.flags), std::to_string(row.result) + " " + row.got);
        const std::string line = said + row.url + "' failed: [" + std::to_string(row.result) + "] ";
        const auto lines = logged();
        EXPECT_EQ(lines.size(), row.result == CURLE_OK ? 0U : 1U);
        EXPECT_THAT(lines, testing::Each(testing::AllOf(StartsWith(line), HasSubstr(row.reason))));
    }
    libzorv_log_level = 7;
    EXPECT_EQ(fetched(host, nullptr), "3 0 ");
    const std::string large(8 << 20, 'x');
    EXPECT_THAT(post("https://cloud.test/hang-up", large.data(), 8 << 20),
                testing::AnyOf(CURLE_SEND_ERROR, CURLE_RECV_ERROR));
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_EQ(open_descriptors(), descriptors);
}

// A resolver that cannot be trusted or reached has no say.
TEST_F(CurlSimple, UntrustedAndMissingResolversArePassedOver)
{
    CloudHost host({.sites = {{"dns.google", Identity::expired}, {"cloud.test"}},
                    .names = {{"cloud.test", "127.0.0.1"}},
                    .answers = {{.path = "/a"}}});
    const char *const url = "https://cloud.test/a";
    EXPECT_EQ(fetched(host, url, CURL_SIMPLE_DOH), "0 200  <cloudflare-dns.com <cloud.test");
    file("/etc/hosts", "127.0.0.1 cloud.test\n");
    EXPECT_EQ(fetched(host, url, CURL_SIMPLE_DOH), "6 0 ");
    EXPECT_EQ(fetched(host, url, CURL_SIMPLE_DOH | CURL_SIMPLE_DOH_FALLBACK), "0 200  <cloud.test");
}

// Servers that never come to an end, all at once in threads of their own.
TEST_F(CurlSimple, SlowPeersEndAfterFiveSeconds)
{
    const std::string loop = "Location: /loop\r\n";
    CloudHost host({.sites = {{"cloud.test"}, {"silent.test", Identity::silent}},
                    .names = {{.name = "waiting.test", .lookup = Lookup::silent}},
                    .answers = {
                        {.path = "/drip", .body = "0123456789", .conduct = Conduct::drip},
                        {.path = "/endless", .body = "0123456789", .conduct = Conduct::endless},
                        {.path = "/silent", .conduct = Conduct::silent},
                        {.path = "/loop", .status = 302, .headers = loop, .delay_ms = 20},
                    }});
    const struct {
        const char *url;
        unsigned flags;
        long status;
    } rows[] = {
        {"https://silent.test/", 0, 0},
        {"https://cloud.test/silent", 0, 0},
        {"https://cloud.test/drip", 0, 200},
        {"https://cloud.test/endless", 0, 200},
        {"https://cloud.test/loop", 0, 302},
        {"https://waiting.test/", 3, 0}, // the resolver that does not answer has had the time
    };
    curl_global_init(CURL_GLOBAL_DEFAULT);
    std::vector<std::thread> threads;
    for (const auto &row : rows)
        threads.emplace_back([row] {
            const Response response = make_response(10);
            const auto begin = std::chrono::steady_clock::now();
            EXPECT_EQ(get(row.url, response, row.flags), CURLE_OPERATION_TIMEDOUT) << row.url;
            const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
            EXPECT_THAT(taken.count(), testing::AllOf(testing::Ge(4.9), testing::Le(7))) << row.url;
            EXPECT_EQ(response->status, row.status) << row.url;
            EXPECT_LE(kept(response).size(), 10U) << row.url;
        });
    for (auto &thread : threads)
        thread.join();
}

// A SIGPIPE from inside a transfer does not reach the process; one that waits for it is left.
TEST_F(CurlSimple, BrokenPipesStayInside)
{
    const auto raising_malloc = [](size_t size) {
        return raise(SIGPIPE) == 0 ? malloc(size) : nullptr;
    };
    curl_global_init_mem(CURL_GLOBAL_DEFAULT, raising_malloc, free, realloc, strdup, calloc);
    const char *const nobody = "http://127.0.0.1:1/"; // refused
    EXPECT_EQ(get(nobody, make_response()), CURLE_COULDNT_CONNECT);
    constexpr timespec kAtOnce = {};
    sigset_t pipe, old;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    sigprocmask(SIG_BLOCK, &pipe, &old);
    EXPECT_EQ(sigismember(&old, SIGPIPE), 0);
    raise(SIGPIPE);
    EXPECT_EQ(get(nobody, make_response()), CURLE_COULDNT_CONNECT);
    EXPECT_EQ(sigtimedwait(&pipe, nullptr, &kAtOnce), SIGPIPE);
}

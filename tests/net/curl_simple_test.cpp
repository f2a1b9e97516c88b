
#include <curl/curl.h>

#include "support/cloud_host.h"
#include "support/device.h"
#include "support/json.h"

using cloud::Conduct;
using cloud::Identity;
using cloud::Lookup;

namespace {

using Headers = std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)>;
using Response = std::unique_ptr<curl_simple_response, decltype(&curl_simple_response_free)>;
using CurlSimple = Device;

Response make_response(size_t max_size = SIZE_MAX)
{
    return {curl_simple_response_init(max_size), curl_simple_response_free};
}

std::string kept(const Response &response)
{
    buffer *body = response->body;
    return {reinterpret_cast<char *>(body->data(body)), body->length(body)};
}

int post(const char *url, const char *data, long length)
{
    return curl_simple_post(url, 0, nullptr, data, length, make_response().get());
}

// What a GET came to: its result, the status, the body, and the sites that were asked.
std::string fetched(CloudHost &host, const char *url, unsigned flags = 0)
{
    const Response response = make_response();
    const int result = curl_simple_get(url, flags, nullptr, response.get());
    std::string text = std::to_string(result) + " " + std::to_string(response->status) + " ", last;
    text += kept(response);
    for (const auto &request : host.received())
        if (request.host != last)
            text += " <" + (last = request.host);
    return text;
}

TEST_F(CurlSimple, SendsWhatItIsGivenAndKeepsOfTheBodyWhatTheLimitAllows)
{
    const std::string to = "Location: https://other.test/in\r\n";
    CloudHost host({.sites = {{"cloud.test"}, {"other.test"}},
                    .answers = {{.path = "/in"},
                                {.path = "/302", .status = 302, .headers = to},
                                {.path = "/a", .status = 201, .body = "abcde"},
                                {.path = "/error", .status = 500, .body = "oh"}}});
    setenv("ALL_PROXY", "https://none.test/", 1); // no way around it
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
    const char *const in = "https://cloud.test/in";
    const std::string bare = " - - */* - ", at = " cloud.test/in";
    const std::string form = " 3 application/x-www-form-urlencoded */* - ";
    curl_slist *list = curl_slist_append(nullptr, "X-Unit: 7");
    curl_slist_append(list, "Content-Type: text/plain");
    const Headers headers(list, curl_slist_free_all);
    EXPECT_EQ(sent(curl_simple_get(in, 0, nullptr, make_response().get())), "0 GET" + at + bare);
    EXPECT_EQ(sent(post(in, "a=bcd", 3)), "0 POST" + at + form + "a=b");
    for (const auto &[data, length] : {std::pair{"a=b", 0}, {"a=b", -1}, {nullptr, 3}})
        EXPECT_EQ(sent(post(in, data, length)), "0 POST" + at + bare);
    EXPECT_EQ(sent(curl_simple_put(in, 0, list, "text", 4, make_response().get())),
              "0 PUT" + at + " 4 text/plain */* 7 text");

    const Json json = loaded(R"({"b": 1, "a": [true, "é"]})"), word = loaded("\"no container\"");
    for (const auto &[send, method] : {std::pair{&curl_simple_post_json, "0 POST" + at},
                                       {&curl_simple_put_json, "0 PUT" + at}}) {
        EXPECT_EQ(sent(send(in, 0, json.get(), make_response().get())),
                  method + R"( 23 application/json */* - {"b":1,"a":[true,"é"]})");
        EXPECT_EQ(sent(send(in, 0, nullptr, make_response().get())),
                  method + " - application/json */* - ");
    }
    EXPECT_EQ(curl_simple_put_json(in, 0, word.get(), nullptr), CURLE_OUT_OF_MEMORY);

    // A redirect takes the word and the body along.
    EXPECT_EQ(sent(post("https://cloud.test/302", "a=b", 3)),
              "0 POST cloud.test/302" + form + "a=b POST other.test/in" + form + "a=b");

    const Response response = make_response(9); // one that is used again goes on
    const std::tuple<const char *, size_t, const char *> rows[] = {
        // Limit, then result, status, bytes that came, body.
        {"https://cloud.test/a", 9, "0 201 5 abcde"},
        {"https://cloud.test/error", 7, "0 500 7 abcdeoh"},
        {"https://cloud.test/a", 9, "0 201 12 abcdeohab"},
        {"https://cloud.test/a", 3, "0 201 17 abcdeohab"}, // below what is there
    };
    for (const auto &[url, limit, want] : rows) {
        response->max_size = limit;
        std::ostringstream got;
        got << curl_simple_get(url, 0, nullptr, response.get()) << ' ' << response->status << ' '
            << response->received << ' ' << kept(response);
        EXPECT_EQ(got.str(), want);
    }
    testing::internal::CaptureStdout(); // without a response the body is printed
    EXPECT_EQ(curl_simple_get("https://cloud.test/a", 0, nullptr, nullptr), CURLE_OK);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "abcde");
}

// What a peer or a resolver gives, at once: the result, what had come before it, and who was asked.
TEST_F(CurlSimple, EveryPeerHasItsResultAndASilentOneFiveSeconds)
{
    const std::string first = cloud::kResolvers[0], second = cloud::kResolvers[1];
    const std::string here = "127.0.0.1";
    CloudHost host(
        {.sites = {{"cloud.test"},
                   {"untrusted.test", Identity::untrusted},
                   {"misnamed.test", Identity::misnamed},
                   {"both.test", Identity::trusted, false},
                   {"refused.test", Identity::trusted, false}},
         .names = {{"both.test", here},
                   {"refused.test", here, first, Lookup::refused},
                   {"refused.test", here, second},
                   {"closed.test", "127.0.0.2", first},
                   {"closed.test", here, second},
                   {.name = "waiting.test", .lookup = Lookup::silent}},
         .answers = {
             {.path = "/a", .body = "a"},
             {.path = "/down", .status = 302, .headers = "Location: http://cloud.test/a\r\n"},
             {.path = "/reset", .body = "0123456789", .conduct = Conduct::reset},
         }});
    const std::string asked = " <" + first + " <" + second;
    const std::string said = "[debug] curl_simple.curl_simple(): GET '";
    const std::tuple<const char *, unsigned, int, std::string> rows[] = {
        {"file:///etc/hosts", 0, CURLE_UNSUPPORTED_PROTOCOL, "0 "},
        {"https://cloud.test/down", 0, CURLE_UNSUPPORTED_PROTOCOL, "302  <cloud.test"},
        {"https://none.test/", 0, CURLE_COULDNT_RESOLVE_HOST, "0 "},
        {"https://untrusted.test/", 0, CURLE_PEER_FAILED_VERIFICATION, "0 "},
        {"https://misnamed.test/", 0, CURLE_PEER_FAILED_VERIFICATION, "0 "},
        {"https://cloud.test/reset", 0, CURLE_RECV_ERROR, "200 01234 <cloud.test"},
        // With flag 1 the resolvers are asked in their order, with 2 too then the system's.
        {"https://cloud.test/a", 1, CURLE_COULDNT_RESOLVE_HOST, "0 " + asked},
        {"https://cloud.test/a", 3, CURLE_OK, "200 a" + asked + " <cloud.test"},
        {"https://both.test/a", ~0U, CURLE_OK, "200 a <" + first + " <both.test"},
        {"https://refused.test/a", 1, CURLE_OK, "200 a" + asked + " <refused.test"},
        {"https://closed.test/a", 3, CURLE_COULDNT_CONNECT, "0  <" + first}, // resolved is resolved
    };
    libzorv_log_level = 8;
    fetched(host, "https://cloud.test/a"); // libraries open what they keep
    const int descriptors = open_descriptors();
    for (const auto &[url, flags, result, want] : rows) {
        const std::string number = std::to_string(result);
        EXPECT_EQ(fetched(host, url, flags), number + " " + want) << url << flags;
        const char *const why = result == CURLE_PEER_FAILED_VERIFICATION ? "SSL" : "";
        const std::string line = said + url + "' failed: [" + number + "] ";
        EXPECT_THAT(logged(), testing::AllOf(testing::SizeIs(result == CURLE_OK ? 0 : 1),
                                             testing::Each(StartsWith(line + why))));
    }
    EXPECT_EQ(fetched(host, nullptr), "3 0 ");
    EXPECT_EQ(open_descriptors(), descriptors);

    const long begin = zorv_grab_ts();
    EXPECT_EQ(fetched(host, "https://waiting.test/", 3).substr(0, 5), "28 0 "); // a resolver here
    EXPECT_NEAR(static_cast<int>(zorv_grab_ts() - begin), 6, 1);
}

// A SIGPIPE from inside a transfer does not reach the process; one that waits for it is left.
TEST_F(CurlSimple, BrokenPipesStayInside)
{
    const auto raising_malloc = [](size_t size) {
        return raise(SIGPIPE) == 0 ? malloc(size) : nullptr;
    };
    curl_global_init_mem(CURL_GLOBAL_DEFAULT, raising_malloc, free, realloc, strdup, calloc);
    const char *const nobody = "http://127.0.0.1:1/"; // refused
    EXPECT_EQ(curl_simple_get(nobody, 0, nullptr, nullptr), CURLE_COULDNT_CONNECT);
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    sigprocmask(SIG_BLOCK, &pipe, nullptr);
    raise(SIGPIPE);
    EXPECT_EQ(curl_simple_get(nobody, 0, nullptr, nullptr), CURLE_COULDNT_CONNECT);
    sigpending(&pipe);
    EXPECT_EQ(sigismember(&pipe, SIGPIPE), 1);
}

} // namespace

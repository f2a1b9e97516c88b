#include <zorv/curl_simple.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <curl/curl.h>
#include <fcntl.h>
#include <unistd.h>

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

Response make_response(size_t max_size = kAll)
{
    return {curl_simple_response_init(max_size), curl_simple_response_free};
}

std::string kept(const Response &response)
{
    buffer *body = response->body;
    return {reinterpret_cast<char *>(body->data(body)), body->length(body)};
}

Headers make_headers(std::initializer_list<const char *> lines)
{
    curl_slist *list = nullptr;
    for (const char *line : lines)
        list = curl_slist_append(list, line);
    return {list, curl_slist_free_all};
}

std::string cloud_url(const std::string &path)
{
    return "https://cloud.test" + path;
}

int get(const std::string &url, const Response &response, unsigned flags = 0)
{
    return curl_simple_get(url.c_str(), flags, nullptr, response.get());
}

int post(const std::string &url, const std::string &data, const Response &response)
{
    return curl_simple_post(url.c_str(), 0, nullptr, data.data(), static_cast<long>(data.size()),
                            response.get());
}

// One trusted site with these answers.
cloud::Script one_site(std::vector<cloud::Answer> answers)
{
    return {.sites = {{"cloud.test"}}, .answers = std::move(answers)};
}

std::vector<std::string> hosts_of(const std::vector<cloud::Request> &requests)
{
    std::vector<std::string> hosts;
    for (const auto &request : requests)
        if (hosts.empty() || hosts.back() != request.host)
            hosts.push_back(request.host);
    return hosts;
}

} // namespace

using CurlSimple = Device;

TEST_F(CurlSimple, SendsTheMethodTheHeadersAndTheBody)
{
    CloudHost host(one_site({{.path = "/in"}}));
    const std::string url = cloud_url("/in");
    const Headers headers = make_headers({"X-Unit: 7", "Accept:", "Content-Type: text/plain"});
    const Json json(json_pack("{s:i, s:[b, s]}", "b", 1, "a", 1, "\xc3\xa9"));
    const Response response = make_response();
    const char *const form = "application/x-www-form-urlencoded";
    const std::string large(2 << 20, 'x');
    constexpr char kPart[] = {'a', '\0', 'b', 'c', 'd', '\0'}; // a body may hold a NUL
    const auto post_of = [&](const char *data, long length) {
        return curl_simple_post(url.c_str(), 0, nullptr, data, length, response.get());
    };
    const struct {
        const char *what;
        int result;
        const char *method;
        std::string body;
        std::string length, type, accept, unit;
    } rows[] = {
        {"get", get(url, response), "GET", "", "", "", "*/*", ""},
        {"get with headers", curl_simple_get(url.c_str(), 0, headers.get(), response.get()), "GET",
         "", "", "text/plain", "", "7"},
        {"post", post_of("a=b", 3), "POST", "a=b", "3", form, "*/*", ""},
        {"post of a part", post_of(kPart, 3), "POST", std::string(kPart, 3), "3", form, "*/*", ""},
        {"post of length 0", post_of("a=b", 0), "POST", "", "", "", "*/*", ""},
        {"post of length -1", post_of("a=b", -1), "POST", "", "", "", "*/*", ""},
        {"post of NULL", post_of(nullptr, 3), "POST", "", "", "", "*/*", ""},
        {"large post", post(url, large, response), "POST", large, "2097152", form, "*/*", ""},
        {"put", curl_simple_put(url.c_str(), 0, headers.get(), "text", 4, response.get()), "PUT",
         "text", "4", "text/plain", "", "7"},
        {"put of NULL", curl_simple_put(url.c_str(), 0, nullptr, nullptr, 0, response.get()), "PUT",
         "", "", "", "*/*", ""},
        {"post_json", curl_simple_post_json(url.c_str(), 0, json.get(), response.get()), "POST",
         "{\"b\":1,\"a\":[true,\"\xc3\xa9\"]}", "23", "application/json", "*/*", ""},
        {"put_json", curl_simple_put_json(url.c_str(), 0, json.get(), response.get()), "PUT",
         "{\"b\":1,\"a\":[true,\"\xc3\xa9\"]}", "23", "application/json", "*/*", ""},
        {"post_json of NULL", curl_simple_post_json(url.c_str(), 0, nullptr, response.get()),
         "POST", "", "", "application/json", "*/*", ""},
    };
    const auto requests = host.received();
    ASSERT_EQ(requests.size(), std::size(rows));
    for (size_t i = 0; i < std::size(rows); ++i) {
        SCOPED_TRACE(rows[i].what);
        EXPECT_EQ(rows[i].result, CURLE_OK);
        EXPECT_EQ(requests[i].method, rows[i].method);
        EXPECT_EQ(requests[i].path, "/in");
        EXPECT_EQ(requests[i].host, "cloud.test");
        EXPECT_TRUE(requests[i].body == rows[i].body) << requests[i].body.substr(0, 100);
        EXPECT_EQ(requests[i].header("Content-Length"), rows[i].length);
        EXPECT_EQ(requests[i].header("Content-Type"), rows[i].type);
        EXPECT_EQ(requests[i].header("Accept"), rows[i].accept);
        EXPECT_EQ(requests[i].header("X-Unit"), rows[i].unit);
    }
    EXPECT_EQ(json->refcount, 1U);
    EXPECT_STREQ(headers->data, "X-Unit: 7");
}

TEST_F(CurlSimple, FollowsRedirectsWithTheSameWord)
{
    const char *const to = "Location: https://other.test/b\r\n";
    CloudHost host({.sites = {{"cloud.test"}, {"other.test"}},
                    .answers = {{.path = "/302", .status = 302, .headers = to},
                                {.path = "/307", .status = 307, .headers = to},
                                {.path = "/b", .status = 201, .body = "there"}}});
    for (const auto &[path, body] : {std::pair{"/302", ""}, std::pair{"/307", "a=b"}}) {
        SCOPED_TRACE(path);
        const Response response = make_response();
        EXPECT_EQ(post(cloud_url(path), "a=b", response), CURLE_OK);
        EXPECT_EQ(response->status, 201);
        EXPECT_EQ(kept(response), "there");
        EXPECT_EQ(response->received, 5U);
        const auto requests = host.received();
        EXPECT_THAT(hosts_of(requests), ElementsAre("cloud.test", "other.test"));
        EXPECT_EQ(requests.back().method, "POST");
        EXPECT_EQ(requests.back().body, body);
    }
}

TEST_F(CurlSimple, KeepsOfTheBodyWhatTheLimitAllows)
{
    const std::string text = "0123456789abcdefghijklmno", large(3 << 20, 'y');
    CloudHost host(one_site({{.path = "/text", .body = text}, {.path = "/large", .body = large}}));
    const struct {
        const char *path;
        const std::string &body;
        size_t max_size, kept;
    } rows[] = {
        {"/text", text, 0, 0},   {"/text", text, 10, 10},   {"/text", text, 24, 24},
        {"/text", text, 25, 25}, {"/text", text, kAll, 25}, {"/large", large, kAll, 3 << 20},
        {"/large", large, 1, 1}, {"/large", large, 0, 0},   {"/large", large, 100001, 100001},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::Message() << row.path << " " << row.max_size);
        const Response response = make_response(row.max_size);
        EXPECT_EQ(response->status, 0);
        EXPECT_EQ(get(cloud_url(row.path), response), CURLE_OK);
        EXPECT_EQ(response->status, 200);
        EXPECT_EQ(response->received, row.body.size());
        EXPECT_TRUE(kept(response) == row.body.substr(0, row.kept));
    }
}

TEST_F(CurlSimple, AResponseThatIsUsedAgainGoesOn)
{
    CloudHost host(one_site({{.path = "/a", .status = 201, .body = "abcde"},
                             {.path = "/error", .status = 500, .body = "oh"}}));
    const Response response = make_response(9);
    EXPECT_EQ(get(cloud_url("/a"), response), CURLE_OK);
    EXPECT_EQ(get(cloud_url("/error"), response), CURLE_OK);
    EXPECT_EQ(response->status, 500);
    EXPECT_EQ(kept(response), "abcdeoh");
    EXPECT_EQ(get(cloud_url("/a"), response), CURLE_OK);
    EXPECT_EQ(kept(response), "abcdeohab");
    EXPECT_EQ(response->received, 12U);
    response->max_size = 3; // below what is there
    EXPECT_EQ(get(cloud_url("/a"), response), CURLE_OK);
    EXPECT_EQ(kept(response), "abcdeohab");
    EXPECT_EQ(response->received, 17U);
    EXPECT_EQ(get("https://none.test/", response), CURLE_COULDNT_RESOLVE_HOST);
    EXPECT_EQ(response->status, 0);
    EXPECT_EQ(kept(response), "abcdeohab");
    curl_simple_response_free(nullptr);
}

TEST_F(CurlSimple, PrintsTheBodyWithoutAResponse)
{
    CloudHost host(one_site({{.path = "/text", .body = "for the terminal"}}));
    fflush(stdout);
    const int terminal = fcntl(1, F_DUPFD_CLOEXEC, 3);
    const int output = open("/tmp/output", O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
    dup2(output, 1);
    const int result = get(cloud_url("/text"), {nullptr, curl_simple_response_free});
    fflush(stdout);
    dup2(terminal, 1);
    EXPECT_EQ(result, CURLE_OK);
    EXPECT_EQ(read("/tmp/output"), "for the terminal");
}

// Nothing is sent to a site that is not what it should be, and the debug message says why.
TEST_F(CurlSimple, TrustsOnlyTheNamedSite)
{
    CloudHost host({.sites = {{"cloud.test"},
                              {"untrusted.test", Identity::untrusted},
                              {"expired.test", Identity::expired},
                              {"misnamed.test", Identity::misnamed}}});
    const std::pair<const char *, const char *> rows[] = {
        {"https://untrusted.test/", "unable to get local issuer certificate"},
        {"https://expired.test/", "certificate has expired"},
        {"https://misnamed.test/", "no alternative certificate subject name matches"},
        {"https://127.0.0.1/", "no alternative certificate subject name matches"},
    };
    for (const auto &[url, reason] : rows) {
        const Response response = make_response();
        libzorv_log_level = 7;
        EXPECT_EQ(post(url, "secret", response), CURLE_PEER_FAILED_VERIFICATION) << url;
        EXPECT_THAT(logged(), IsEmpty());
        libzorv_log_level = 8;
        post(url, "secret", response);
        const std::string words =
            std::string("[debug] curl_simple.curl_simple(): POST '") + url + "' failed: [60] ";
        EXPECT_THAT(logged(), ElementsAre(testing::AllOf(HasSubstr(words), HasSubstr(reason))));
        EXPECT_EQ(response->status, 0);
    }
    EXPECT_THAT(host.received(), IsEmpty());
}

// What a broken peer gives, at once: the result, and what had come before it.
TEST_F(CurlSimple, BrokenPeersAndAddressesEndAtOnce)
{
    const auto ok = [](const char *path, const std::string &rest) {
        return cloud::Answer{
            .path = path, .body = "HTTP/1.1 200 OK\r\n" + rest, .conduct = Conduct::raw};
    };
    CloudHost host(
        {.sites = {{"cloud.test"},
                   {"garbage.test", Identity::garbage},
                   {"reset.test", Identity::reset}},
         .answers = {
             {.path = "/reset", .body = "0123456789", .conduct = Conduct::reset},
             {.path = "/half", .body = "0123456789", .conduct = Conduct::half_close},
             {.path = "/hang-up", .conduct = Conduct::hang_up},
             {.path = "/empty", .conduct = Conduct::raw},
             {.path = "/no-http", .body = "220 mail\r\n\r\n", .conduct = Conduct::raw},
             ok("/cut", "Content-Len"),
             ok("/short", "Content-Length: 9\r\n\r\nabc"),
             ok("/length", "Content-Length: -9\r\n\r\nabc"),
             ok("/chunk", "Transfer-Encoding: chunked\r\n\r\n3\r\nabc\r\nZZ\r\n"),
             ok("/header", "X: " + std::string(200000, 'x') + "\r\n\r\nabc"),
             {.path = "/to-nowhere", .status = 302, .headers = "Location: https://none.test/\r\n"},
             {.path = "/to-gopher", .status = 302, .headers = "Location: gopher://h/\r\n"},
         }});
    const std::string too_long = "https://cloud.test/" + std::string(8000001, 'x');
    const struct {
        const char *url;
        int result;
        long status;
        const char *body;
    } rows[] = {
        {nullptr, CURLE_URL_MALFORMAT, 0, ""},
        {"", CURLE_URL_MALFORMAT, 0, ""},
        {"https://", CURLE_URL_MALFORMAT, 0, ""},
        {"https://cloud.test:0x1/", CURLE_URL_MALFORMAT, 0, ""},
        {too_long.c_str(), CURLE_URL_MALFORMAT, 0, ""},
        {"nonsense://cloud.test/", CURLE_UNSUPPORTED_PROTOCOL, 0, ""},
        {"https://none.test/", CURLE_COULDNT_RESOLVE_HOST, 0, ""},
        {"https://cloud.test:1/", CURLE_COULDNT_CONNECT, 0, ""},
        {"https://garbage.test/", CURLE_SSL_CONNECT_ERROR, 0, ""},
        {"https://reset.test/", CURLE_SSL_CONNECT_ERROR, 0, ""},
        {"https://cloud.test/reset", CURLE_RECV_ERROR, 200, "01234"},
        {"https://cloud.test/half", CURLE_PARTIAL_FILE, 200, "01234"},
        {"https://cloud.test/empty", CURLE_GOT_NOTHING, 0, ""},
        {"https://cloud.test/no-http", CURLE_UNSUPPORTED_PROTOCOL, 0, ""},
        {"https://cloud.test/cut", CURLE_OK, 200, ""},
        {"https://cloud.test/short", CURLE_PARTIAL_FILE, 200, "abc"},
        {"https://cloud.test/length", CURLE_WEIRD_SERVER_REPLY, 200, ""},
        {"https://cloud.test/chunk", CURLE_RECV_ERROR, 200, "abc"},
        {"https://cloud.test/header", CURLE_OUT_OF_MEMORY, 200, ""},
        {"https://cloud.test/to-nowhere", CURLE_COULDNT_RESOLVE_HOST, 302, ""},
        {"https://cloud.test/to-gopher", CURLE_UNSUPPORTED_PROTOCOL, 302, ""},
        {"https://cloud.test/none", CURLE_OK, 404, ""},
    };
    libzorv_log_level = 8;
    get(cloud_url("/none"), make_response()); // libraries open what they keep
    const int descriptors = open_descriptors();
    for (const auto &row : rows) {
        SCOPED_TRACE(row.url ? std::string(row.url).substr(0, 100) : "NULL");
        logged();
        const Response response = make_response();
        EXPECT_EQ(curl_simple_get(row.url, 0, nullptr, response.get()), row.result);
        EXPECT_EQ(response->status, row.status);
        EXPECT_EQ(kept(response), row.body);
        EXPECT_EQ(logged().size(), row.result == CURLE_OK ? 0U : 1U);
    }
    const int result = post(cloud_url("/hang-up"), std::string(8 << 20, 'x'), make_response());
    EXPECT_THAT(result, testing::AnyOf(CURLE_SEND_ERROR, CURLE_RECV_ERROR));
    EXPECT_EQ(open_descriptors(), descriptors);
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
                        {.path = "/late", .body = "x", .delay_ms = 60000},
                    }});
    const struct {
        const char *url;
        unsigned flags;
        long status;
    } rows[] = {
        {"https://silent.test/", 0, 0},         {"https://cloud.test/silent", 0, 0},
        {"https://cloud.test/late", 0, 0},      {"https://cloud.test/drip", 0, 200},
        {"https://cloud.test/endless", 0, 200}, {"https://cloud.test/loop", 0, 302},
        {"https://waiting.test/", 3, 0}, // the resolver that does not answer has had the time
    };
    curl_global_init(CURL_GLOBAL_DEFAULT);
    std::vector<std::thread> threads;
    for (const auto &row : rows)
        threads.emplace_back([row] {
            const Response response = make_response(10);
            const auto begin = std::chrono::steady_clock::now();
            EXPECT_EQ(get(row.url, response, row.flags), CURLE_OPERATION_TIMEDOUT) << row.url;
            const auto taken = std::chrono::steady_clock::now() - begin;
            EXPECT_GE(taken, std::chrono::milliseconds(4900)) << row.url;
            EXPECT_LT(taken, std::chrono::milliseconds(7000)) << row.url;
            EXPECT_EQ(response->status, row.status) << row.url;
            EXPECT_LE(kept(response).size(), 10U) << row.url;
        });
    for (auto &thread : threads)
        thread.join();
}

TEST_F(CurlSimple, ResolversAreAskedInTheirOrder)
{
    const std::string here = "127.0.0.1";
    const std::string google = cloud::kResolvers[0], cloudflare = cloud::kResolvers[1];
    CloudHost host({.sites = {{"cloud.test"},
                              {"both.test", Identity::trusted, false},
                              {"second.test", Identity::trusted, false},
                              {"refused.test", Identity::trusted, false},
                              {"nonsense.test", Identity::trusted, false}},
                    .names = {{"both.test", here},
                              {"second.test", here, cloudflare},
                              {"refused.test", here, google, Lookup::refused},
                              {"refused.test", here, cloudflare},
                              {"nonsense.test", here, google, Lookup::nonsense},
                              {"nonsense.test", here, cloudflare},
                              {"closed.test", "127.0.0.2", google},
                              {"closed.test", here, cloudflare}},
                    .answers = {{.path = "/a", .body = "a"}}});
    using List = std::vector<std::string>;
    const struct {
        const char *host;
        unsigned flags;
        int result;
        List asked; // in the end the site itself
    } rows[] = {
        {"cloud.test", 0, CURLE_OK, {"cloud.test"}},
        {"cloud.test", 2, CURLE_OK, {"cloud.test"}},
        {"cloud.test", 1, CURLE_COULDNT_RESOLVE_HOST, {google, cloudflare}},
        {"cloud.test", 3, CURLE_OK, {google, cloudflare, "cloud.test"}},
        {"none.test", 1, CURLE_COULDNT_RESOLVE_HOST, {google, cloudflare}},
        {"none.test", 3, CURLE_COULDNT_RESOLVE_HOST, {google, cloudflare}},
        {"both.test", 0, CURLE_COULDNT_RESOLVE_HOST, {}},
        {"both.test", 1, CURLE_OK, {google, "both.test"}},
        {"both.test", ~0U, CURLE_OK, {google, "both.test"}},
        {"second.test", 1, CURLE_OK, {google, cloudflare, "second.test"}},
        {"refused.test", 1, CURLE_OK, {google, cloudflare, "refused.test"}},
        {"nonsense.test", 1, CURLE_OK, {google, cloudflare, "nonsense.test"}},
        {"closed.test", 3, CURLE_COULDNT_CONNECT, {google}}, // resolved is resolved
    };
    libzorv_log_level = 8;
    for (const auto &row : rows) {
        const std::string url = std::string("https://") + row.host + "/a";
        SCOPED_TRACE(testing::Message() << url << " " << row.flags);
        const Response response = make_response();
        EXPECT_EQ(get(url, response, row.flags), row.result);
        EXPECT_EQ(kept(response), row.result == CURLE_OK ? "a" : "");
        EXPECT_EQ(hosts_of(host.received()), row.asked);
        const auto lines = logged();
        ASSERT_EQ(lines.size(), row.result == CURLE_OK ? 0U : 1U);
        if (row.result != CURLE_OK) {
            EXPECT_THAT(lines[0], HasSubstr("GET '" + url + "' failed: ["));
        }
    }
}

// A resolver that cannot be trusted or reached has no say.
TEST_F(CurlSimple, UntrustedAndMissingResolversArePassedOver)
{
    CloudHost host({.sites = {{"dns.google", Identity::expired}, {"cloud.test"}},
                    .names = {{"cloud.test", "127.0.0.1"}},
                    .answers = {{.path = "/a"}}});
    const Response response = make_response();
    EXPECT_EQ(get(cloud_url("/a"), response, CURL_SIMPLE_DOH), CURLE_OK);
    EXPECT_THAT(hosts_of(host.received()), ElementsAre("cloudflare-dns.com", "cloud.test"));
    file("/etc/hosts", "127.0.0.1 cloud.test\n");
    EXPECT_EQ(get(cloud_url("/a"), response, CURL_SIMPLE_DOH), CURLE_COULDNT_RESOLVE_HOST);
    EXPECT_EQ(get(cloud_url("/a"), response, CURL_SIMPLE_DOH | CURL_SIMPLE_DOH_FALLBACK), CURLE_OK);
    EXPECT_THAT(hosts_of(host.received()), ElementsAre("cloud.test"));
}

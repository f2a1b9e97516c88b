// The HTTP client when memory is short, and when a signal comes.
#include <zorv/curl_simple.h>

#include <csignal>
#include <cstring>

#include <curl/curl.h>
#include <jansson.h>

#include "support/allocation.h"
#include "support/device.h"

namespace {

constexpr char kNobody[] = "http://127.0.0.1:1/"; // refused

// libcurl and jansson allocate with this test's functions, which fail as it tells them.
void share_allocation()
{
    ASSERT_EQ(curl_global_init_mem(CURL_GLOBAL_DEFAULT, malloc, free, realloc, strdup, calloc), 0);
    json_set_alloc_funcs(malloc, free);
}

void *raising_malloc(size_t size)
{
    raise(SIGPIPE);
    return malloc(size);
}

bool is_pending(int number)
{
    sigset_t set;
    sigpending(&set);
    return sigismember(&set, number) == 1;
}

} // namespace

using CurlSimple = Device;

TEST_F(CurlSimple, NamesWhatAResponseLacksMemoryFor)
{
    for (long n = 1; n <= 4; ++n) {
        fail_allocation(n);
        EXPECT_EQ(curl_simple_response_init(10), nullptr);
        EXPECT_THAT(logged(),
                    ElementsAre(n == 1 ? "[error] curl_simple.curl_simple_response_init(): Failed "
                                         "to allocate curl_simple_response"
                                       : "[error] curl_simple.curl_simple_response_init(): Failed "
                                         "to allocate response buffer"));
    }
}

TEST_F(CurlSimple, ShortMemoryEndsARequestAndNothingElse)
{
    share_allocation();
    libzorv_log_level = 8;
    json_t *const json = json_pack("{s:s}", "key", "value");
    std::vector<std::string> lines;
    int result = 0;
    for (long n = 1; result != CURLE_COULDNT_CONNECT; ++n) {
        ASSERT_LT(n, 1000);
        fail_allocation(n);
        result = curl_simple_post_json(kNobody, 0, json, nullptr);
        EXPECT_NE(result, CURLE_OK);
        for (const auto &line : logged())
            lines.push_back(line);
    }
    fail_allocations_off();
    json_decref(json);
    EXPECT_THAT(
        lines,
        testing::IsSupersetOf(
            {"[error] curl_simple.curl_simple_json(): Failed to add HTTP header",
             "[error] curl_simple.curl_simple_json(): Failed to dump json payload object",
             "[debug] curl_simple.curl_simple(): Failed to init request",
             "[debug] curl_simple.curl_simple(): POST 'http://127.0.0.1:1/' failed: [27] "}));
}

TEST_F(CurlSimple, AValueWithoutATextIsNotSent)
{
    json_t *const json = json_string("neither object nor array");
    EXPECT_EQ(curl_simple_put_json(kNobody, 0, json, nullptr), CURLE_OUT_OF_MEMORY);
    json_decref(json);
    EXPECT_THAT(
        logged(),
        ElementsAre("[error] curl_simple.curl_simple_json(): Failed to dump json payload object"));
}

// A SIGPIPE from inside a transfer does not reach the process; one that waits for it is left.
TEST_F(CurlSimple, BrokenPipesStayInside)
{
    ASSERT_EQ(
        curl_global_init_mem(CURL_GLOBAL_DEFAULT, raising_malloc, free, realloc, strdup, calloc),
        0);
    EXPECT_EQ(curl_simple_get(kNobody, 0, nullptr, nullptr), CURLE_COULDNT_CONNECT);
    EXPECT_FALSE(is_pending(SIGPIPE));
    sigset_t pipe, old;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    sigprocmask(SIG_BLOCK, &pipe, &old);
    EXPECT_EQ(sigismember(&old, SIGPIPE), 0);
    raise(SIGPIPE);
    EXPECT_EQ(curl_simple_get(kNobody, 0, nullptr, nullptr), CURLE_COULDNT_CONNECT);
    EXPECT_TRUE(is_pending(SIGPIPE));
}

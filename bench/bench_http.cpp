// One POST of 1 KiB to a server on loopback, against libcurl's easy interface used by hand with the
// same options.
#include "ratio.h"

#include <csignal>
#include <string>

#include <curl/curl.h>
#include <sys/prctl.h>
#include <unistd.h>
#include <zorv/curl_simple.h>

#include "cloud/service.h"

namespace {

constexpr char kAnswer[] = "{\"accepted\":true}";

std::string g_url; // of the server, set before the first benchmark

void post(benchmark::State &state, long size)
{
    const std::string body(static_cast<size_t>(size), 'x');
    for ([[maybe_unused]] const auto _ : state) {
        curl_simple_response *const response = curl_simple_response_init(2048);
        if (curl_simple_post(g_url.c_str(), 0, nullptr, body.data(), size, response) != CURLE_OK ||
            response->received != sizeof kAnswer - 1)
            state.SkipWithError("not answered");
        curl_simple_response_free(response);
    }
}

size_t collect(char *bytes, size_t size, size_t count, void *user)
{
    static_cast<std::string *>(user)->append(bytes, size * count);
    return size * count;
}

CURLcode post_by_hand(const std::string &body, std::string &answer, long &status)
{
    char error[CURL_ERROR_SIZE] = "";
    CURL *const easy = curl_easy_init();
    curl_easy_setopt(easy, CURLOPT_URL, g_url.c_str());
    curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, "POST");
    curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L);
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body.data());
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
    curl_easy_setopt(easy, CURLOPT_TIMEOUT, 5L);
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, error);
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, collect);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &answer);
    const CURLcode result = curl_easy_perform(easy);
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
    curl_easy_cleanup(easy);
    return result;
}

void post_with_easy(benchmark::State &state, long size)
{
    const std::string body(static_cast<size_t>(size), 'x');
    for ([[maybe_unused]] const auto _ : state) {
        std::string answer;
        long status = 0;
        if (post_by_hand(body, answer, status) != CURLE_OK || answer != kAnswer)
            state.SkipWithError("not answered");
    }
}

// In a process of its own, which ends with this one.
void start_server()
{
    cloud::Service service({.answers = {{.path = "/in", .body = kAnswer}}},
                           {.port = 0, .plain = true});
    g_url = "http://127.0.0.1:" + std::to_string(service.port()) + "/in";
    if (fork() == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        service.run();
    }
}

} // namespace

void register_benches()
{
    start_server();
    curl_global_init(CURL_GLOBAL_DEFAULT);
    bench::add("post", {1024}, "zorv", post);
    bench::add("post", {1024}, "easy by hand", post_with_easy);
}

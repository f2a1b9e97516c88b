#include <string>

#include "support/cloud_host.h"
#include "support/device.h"

using testing::HasSubstr;

namespace {

class ZorvctlHttp : public Device {
protected:
    void SetUp() override { kernel_proc(); } // for the sanitizers of zorvctl

    static Outcome http(const std::string &arguments) { return run(ZORVCTL " http " + arguments); }
};

TEST_F(ZorvctlHttp, TellsWhatBecameOfARequest)
{
    CloudHost host(
        {.sites = {{"cloud.test"},
                   {"expired.test", cloud::Identity::expired},
                   {"hidden.test", cloud::Identity::trusted, false}},
         .names = {{"hidden.test", "127.0.0.1"}},
         .answers = {{.path = "/a", .status = 201, .body = "0123456789"},
                     {.path = "/half", .body = "0123456789", .conduct = cloud::Conduct::reset}}});
    const struct {
        const char *arguments;
        int status;
        const char *document; // from the member "status" on
    } rows[] = {
        {"get https://cloud.test/a", 0,
         R"("status":201,"result":0,"name":"CURLE_OK","meaning":"No error","received":10,)"
         R"("kept":10,"resolver":"system","body":"0123456789"})"},
        {"get https://cloud.test/a --max 4", 0,
         R"("status":201,"result":0,"name":"CURLE_OK","meaning":"No error","received":10,)"
         R"("kept":4,"resolver":"system","body":"0123"})"},
        {"get https://cloud.test/none", 1,
         R"("status":404,"result":0,"name":"CURLE_OK","meaning":"No error","received":0,)"
         R"("kept":0,"resolver":"system","body":""})"},
        {"get https://hidden.test/a --doh", 0,
         R"("status":201,"result":0,"name":"CURLE_OK","meaning":"No error","received":10,)"
         R"("kept":10,"resolver":"doh","body":"0123456789"})"},
        {"get https://cloud.test/a --doh --doh-fallback", 0,
         R"("status":201,"result":0,"name":"CURLE_OK","meaning":"No error","received":10,)"
         R"("kept":10,"resolver":"system","body":"0123456789"})"},
        {"get https://cloud.test/a --doh", 5,
         R"("status":0,"result":6,"name":"CURLE_COULDNT_RESOLVE_HOST",)"
         R"("meaning":"Couldn't resolve host name","received":0,)"
         R"("kept":0,"resolver":null,"body":""})"},
        {"get https://cloud.test/half", 5,
         R"("status":200,"result":56,"name":"CURLE_RECV_ERROR",)"
         R"("meaning":"Failure when receiving data from the peer","received":5,)"
         R"("kept":5,"resolver":"system","body":"01234"})"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.arguments);
        const Outcome outcome = http(std::string("--json ") + row.arguments);
        EXPECT_EQ(outcome.status, row.status);
        EXPECT_THAT(outcome.output, HasSubstr(row.document));
        EXPECT_EQ(outcome.errors, "");
    }
    EXPECT_EQ(http("get https://cloud.test/a").output, "method    GET\n"
                                                       "url       https://cloud.test/a\n"
                                                       "status    201\n"
                                                       "result    0\n"
                                                       "name      CURLE_OK\n"
                                                       "meaning   No error\n"
                                                       "received  10\n"
                                                       "kept      10\n"
                                                       "resolver  system\n"
                                                       "\n"
                                                       "0123456789\n");
    const Outcome trace = http("get https://expired.test/ --trace");
    EXPECT_THAT(trace.output, HasSubstr("system        60  CURLE_PEER_FAILED_VERIFICATION"));
    EXPECT_THAT(trace.errors, HasSubstr("certificate has expired"));
}

TEST_F(ZorvctlHttp, SendsDataAndHeaders)
{
    CloudHost host({.sites = {{"cloud.test"}}, .answers = {{.path = "/in"}}});
    file("/tmp/body", std::string("a\0b", 3));
    EXPECT_EQ(http("post https://cloud.test/in --data @/tmp/body").status, 0);
    EXPECT_EQ(
        http("put https://cloud.test/in --data text --header 'X-A: 1' --header 'X-B: 2'").status,
        0);
    EXPECT_EQ(http("post https://cloud.test/in").status, 0);
    EXPECT_EQ(http("post https://cloud.test/in --data @/tmp/none").status, 5);
    EXPECT_EQ(http("get https://cloud.test/in --doh-fallback").status, 2);
    const auto requests = host.received();
    ASSERT_EQ(requests.size(), 3U);
    EXPECT_EQ(requests[0].method, "POST");
    EXPECT_EQ(requests[0].body, std::string("a\0b", 3));
    EXPECT_EQ(requests[1].method, "PUT");
    EXPECT_EQ(requests[1].body, "text");
    EXPECT_EQ(requests[1].header("X-A") + requests[1].header("X-B"), "12");
    EXPECT_EQ(requests[2].header("Content-Length"), "");
}

} // namespace

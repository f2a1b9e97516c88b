#include "support/cloud_host.h"
#include "tools/zorvctl.h"

namespace {

using ZorvctlHttp = Zorvctl;

TEST_F(ZorvctlHttp, TellsWhatBecameOfARequest)
{
    CloudHost host(
        {.sites = {{"cloud.test"},
                   {"expired.test", cloud::Identity::expired},
                   {"hidden.test", cloud::Identity::trusted, false}},
         .names = {{"hidden.test", "127.0.0.1"}},
         .answers = {{.path = "/a", .status = 201, .body = "0123456789"},
                     {.path = "/half", .body = "0123456789", .conduct = cloud::Conduct::reset}}});
    const std::string ok = R"("name":"CURLE_OK","meaning":"No error",)";
    const struct {
        const char *arguments;
        int status;
        std::string document; // from the member "status" on
    } rows[] = {
        {"get https://cloud.test/a", 0,
         R"("status":201,"result":0,)" + ok + R"("received":10,"kept":10,"resolver":"system",)" +
             R"("body":"0123456789"})"},
        {"get https://cloud.test/a --max 4", 0,
         R"("received":10,"kept":4,"resolver":"system","body":"0123"})"},
        {"get https://cloud.test/none", 1, R"("status":404,"result":0,)" + ok},
        {"get https://hidden.test/a --doh", 0, R"("kept":10,"resolver":"doh",)"},
        {"get https://cloud.test/a --doh --doh-fallback", 0, R"("kept":10,"resolver":"system",)"},
        {"get https://cloud.test/a --doh", 5,
         R"("status":0,"result":6,"name":"CURLE_COULDNT_RESOLVE_HOST",)"
         R"("meaning":"Couldn't resolve host name","received":0,)"
         R"("kept":0,"resolver":null,"body":""})"},
        {"get https://cloud.test/half", 5,
         R"("status":200,"result":56,"name":"CURLE_RECV_ERROR",)"
         R"("meaning":"Failure when receiving data from the peer","received":5,"kept":5,)"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.arguments);
        const Outcome outcome = ctl(std::string("--json http ") + row.arguments);
        EXPECT_EQ(outcome.status, row.status);
        EXPECT_THAT(outcome.output, HasSubstr(row.document));
        EXPECT_EQ(outcome.errors, "");
    }
    EXPECT_EQ(ctl("http get https://cloud.test/a").output, "method    GET\n"
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
    const Outcome trace = ctl("http get https://expired.test/ --trace");
    EXPECT_THAT(trace.output, HasSubstr("system        60  CURLE_PEER_FAILED_VERIFICATION"));
    EXPECT_THAT(trace.errors, HasSubstr("certificate has expired"));
}

TEST_F(ZorvctlHttp, SendsDataAndHeaders)
{
    CloudHost host({.sites = {{"cloud.test"}}, .answers = {{.path = "/in"}}});
    file("/tmp/body", std::string("a\0b", 3));
    expect(0, "", "http post https://cloud.test/in --data @/tmp/body");
    expect(0, "", "http put https://cloud.test/in --data text --header 'X-A: 1' --header 'X-B: 2'");
    expect(0, "", "http post https://cloud.test/in");
    expect(5, "", "http post https://cloud.test/in --data @/tmp/none");
    expect(2, "", "http get https://cloud.test/in --doh-fallback");
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

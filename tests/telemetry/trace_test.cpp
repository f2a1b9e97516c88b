#include <zorv/trace.h>

#include <ctime>
#include <string>
#include <vector>

#include <curl/curl.h>
#include <sys/time.h>

#include "support/cloud_host.h"
#include "support/device.h"
#include "support/json.h"

using cloud::Conduct;
using cloud::Identity;

namespace {

constexpr char kMode[] = "/var/run/system.analytics.mode";
constexpr char kProduction[] = "trace.zorv.example";
constexpr char kRelease[] = "scm_reftype=atag\n"; // of /usr/lib/build.properties

uint64_t g_clock = 0; // milliseconds since 1970; 0 for the machine's own clock

class Trace : public Device {
protected:
    Trace()
    {
        g_clock = 1700000000000;
        file("/usr/lib/build.properties", kRelease);
    }

    static int send_batch() { return send_traces(batch().get(), nullptr); }
    static Json batch() { return loaded("[{}]"); }
};

cloud::Script service(std::vector<cloud::Answer> answers, Identity identity = Identity::trusted)
{
    return {.sites = {{kProduction, identity}}, .answers = std::move(answers)};
}

cloud::Answer answer(int status, std::string body = "")
{
    return {.path = "/traces", .method = "PUT", .status = status, .body = std::move(body)};
}

} // namespace

// The clock that the back-off goes by, of the library as well.
extern "C" int gettimeofday(timeval *__restrict now, void *__restrict) noexcept
{
    timespec own;
    clock_gettime(CLOCK_REALTIME, &own);
    *now = {own.tv_sec, own.tv_nsec / 1000};
    if (g_clock != 0)
        *now = {static_cast<time_t>(g_clock / 1000),
                static_cast<suseconds_t>(g_clock % 1000 * 1000 + 999)};
    return 0;
}

TEST_F(Trace, SettersTakeTheReferenceWhetherTheValueFitsOrNot)
{
    libzorv_log_level = 16;
    const struct {
        int (*set)(json_t *, json_t *);
        const char *value;
        const char *trace; // afterwards, or NULL when the value is refused
        const char *message;
    } rows[] = {
        {trace_object_set_payload_new, R"({"b":[1,"é"],"a":null})",
         R"({"payload":{"contentType":"application/json","data":"{\"b\":[1,\"é\"],\"a\":null}"}})",
         ""},
        {trace_object_set_payload_new, "[]", nullptr, ""},
        {trace_object_set_timestamp_new, "-1", R"({"timestamp":-1})", ""},
        {trace_object_set_timestamp_new, R"("1")", nullptr,
         "timestamp_new(): Trace timestamp must be an integer"},
        {trace_object_set_type_new, R"("")", R"({"type":""})", ""},
        {trace_object_set_type_new, "1", nullptr, "type_new(): Trace type must be a string"},
        {trace_object_set_namespace_new, R"("net")", R"({"namespace":"net"})", ""},
        {trace_object_set_namespace_new, "{}", nullptr,
         "namespace_new(): Trace namespace must be a string"},
        {trace_object_set_source_new, "{}", R"({"source":{}})", ""},
        {trace_object_set_source_new, R"({"a":"b","c":{}})", nullptr,
         "source_new(): Trace source must be an object containing only string values"},
        {trace_object_set_meta_new, R"({"a":"b","c":""})", R"({"meta":{"a":"b","c":""}})", ""},
        {trace_object_set_meta_new, R"({"a":1})", nullptr,
         "meta_new(): Trace meta must be an object containing only string values"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.value);
        const Json trace(trace_object()), value = loaded(row.value);
        EXPECT_EQ(row.set(trace.get(), json_incref(value.get())), row.trace ? 0 : -1);
        EXPECT_EQ(dumped(trace.get()), row.trace ? row.trace : "{}");
        const bool is_kept = row.trace && row.set != trace_object_set_payload_new;
        EXPECT_EQ(value->refcount, is_kept ? 2U : 1U);
        const auto lines = logged();
        if (*row.message)
            EXPECT_THAT(lines,
                        ElementsAre("[debug] trace.trace_object_set_" + std::string(row.message)));
        else
            EXPECT_THAT(lines, IsEmpty());

        EXPECT_EQ(row.set(nullptr, json_incref(value.get())), -1); // no trace to set it in
        EXPECT_EQ(value->refcount, is_kept ? 2U : 1U);
        EXPECT_EQ(row.set(trace.get(), nullptr), -1);
        libzorv_log_level = 15;
        logged();
        EXPECT_EQ(row.set(trace.get(), json_null()), -1);
        EXPECT_THAT(logged(), IsEmpty());
        libzorv_log_level = 16;
    }
}

TEST_F(Trace, APayloadThatContainsItselfIsRefused)
{
    libzorv_log_level = 16;
    const Json trace(trace_object()), data(json_object());
    json_t *const list = json_array();
    json_object_set_new(data.get(), "list", list);
    json_array_append(list, data.get());
    EXPECT_EQ(trace_object_set_payload_new(trace.get(), json_incref(data.get())), -1);
    EXPECT_EQ(data->refcount, 2U);
    EXPECT_EQ(dumped(trace.get()), "{}");
    EXPECT_THAT(logged(), ElementsAre("[debug] trace.trace_object_set_payload_new(): Failed to "
                                      "create payload object"));
    dump_refcount(data.get(), "loop");
    EXPECT_THAT(logged(), testing::SizeIs(testing::Lt(100)));
    json_array_clear(list);
}

TEST_F(Trace, ABatchTakesTracesAndNothingElseIsAnArray)
{
    const Json array(trace_array()), trace(trace_object());
    EXPECT_EQ(trace_array_append_new(array.get(), json_incref(trace.get())), 0);
    EXPECT_EQ(trace_array_append_new(trace.get(), json_incref(trace.get())), -1);
    EXPECT_EQ(trace_array_append_new(nullptr, json_incref(trace.get())), -1);
    EXPECT_EQ(trace_array_append_new(array.get(), nullptr), -1);
    EXPECT_EQ(trace->refcount, 2U);
    EXPECT_EQ(dumped(array.get()), "[{}]");
    trace_decref(nullptr);
    trace_decref(json_incref(trace.get()));
    EXPECT_EQ(trace->refcount, 2U);
}

TEST_F(Trace, TheEnvelopeTellsWhichDeviceSpeaks)
{
    CloudHost host(service({answer(202)}));
    file("/proc/zorvhal/system.info", "vendorid=1f3d\nsystemid=7e8e\nboardrevision=9\n"
                                      "manufid=00ff\nmfgweek=202647\n"
                                      "device.anonid=0123456789abcdef\n");
    file("/proc/zorvhal/status/IsDefault", "true\n");
    file("/usr/etc/.version", "v2.4.4\n");
    file("/usr/etc/.build", "77\n");
    const std::string long_id(70, 'c');
    file("/tmp/system.cfg", "pluvo.version=7.1\npluvo.anonymous_controller_id=" + long_id +
                                "\npluvo.anonymous_site_id=site\n");
    const std::string fields = R"("version":"v2.4.4.77","board_rev":"9","manufacturer_id":"255",)"
                               R"("controller.version":"7.1","is_default":"true",)"
                               R"("mfg_week":"202647","anonymous_controller_id":")" +
                               long_id.substr(0, 64) +
                               R"(","anonymous_site_id":"site",)"
                               R"("anonymous_device_id":"0123456789abcdef"})";
    const Json traces = loaded(R"([{"type":"a"},{"type":"b"}])");
    EXPECT_EQ(send_traces(traces.get(), nullptr), TRACE_ACCEPTED);
    EXPECT_EQ(traces->refcount, 1U);
    EXPECT_EQ(json_array_get(traces.get(), 0)->refcount, 1U);
    const auto requests = host.received();
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].method, "PUT");
    EXPECT_EQ(requests[0].host, kProduction);
    EXPECT_EQ(requests[0].path, "/traces");
    EXPECT_EQ(requests[0].header("Content-Type"), "application/json");
    EXPECT_EQ(requests[0].body,
              R"({"meta":{"timestamp":1700000000000,"type":"event","meta":{"model":"TARN-R",)" +
                  fields + R"(,"source":{}},"traces":[{"type":"a"},{"type":"b"}]})");
}

TEST_F(Trace, ADeviceThatKnowsNothingOfItselfSaysSo)
{
    CloudHost host(service({answer(202)}));
    file("/tmp/system.cfg", "pluvo.anonymous_site_id=\xff\n"); // no UTF-8: left out
    EXPECT_EQ(send_batch(), TRACE_ACCEPTED);
    EXPECT_THAT(logged(),
                ElementsAre("[warn ] trace.set_version(): Couldn't obtain firmware version! error "
                            "code = -2"));
    // The stand-in has become the id of this process.
    file("/proc/zorvhal/system.info", "device.anonid=0123456789abcdef\n");
    EXPECT_EQ(send_batch(), TRACE_ACCEPTED);
    const std::string fields = R"("manufacturer_id":"0","controller.version":"unknown",)"
                               R"("is_default":"false","mfg_week":"2005",)"
                               R"("anonymous_device_id":"0000000000000000"})";
    const auto requests = host.received();
    ASSERT_EQ(requests.size(), 2U);
    const std::string begin = R"("meta":{"model":"","version":"unknown.0","board_rev":)";
    EXPECT_THAT(requests[0].body, HasSubstr(begin + R"("-1",)" + fields));
    EXPECT_THAT(requests[1].body, HasSubstr(begin + R"("0",)" + fields));
}

TEST_F(Trace, TheCallersMetaShapesTheEnvelope)
{
    libzorv_log_level = 1;
    CloudHost host(service({answer(202)}));
    const struct {
        const char *meta;
        const char *begin; // of the outer meta, and of its end
        const char *end;
    } rows[] = {
        {R"({"timestamp":7,"type":"crash","source":{"a":1},"other":1})",
         R"({"timestamp":7,"type":"crash","meta":{"model":)", R"("source":{"a":1}},"traces")"},
        {R"({"timestamp":"soon","type":[],"source":[],"meta":"x"})",
         R"({"timestamp":"soon","type":[],"meta":{"model":)", R"("source":{}},"traces")"},
        {R"({"meta":{"own":5,"model":"mine"}})",
         R"({"timestamp":1700000000000,"type":"event","meta":{"own":5,"model":"","version":)",
         R"("source":{}},"traces")"},
        {"[]", R"({"timestamp":1700000000000,"type":"event","meta":{"model":)",
         R"("source":{}},"traces")"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.meta);
        const Json meta = loaded(row.meta);
        EXPECT_EQ(send_traces(batch().get(), meta.get()), TRACE_ACCEPTED);
        const auto requests = host.received();
        ASSERT_EQ(requests.size(), 1U);
        EXPECT_THAT(requests[0].body, testing::StartsWith("{\"meta\":" + std::string(row.begin)));
        EXPECT_THAT(requests[0].body, HasSubstr(row.end));
        EXPECT_EQ(meta->refcount, 1U);
        json_t *const inner = json_object_get(meta.get(), "meta");
        EXPECT_EQ(json_object_get(inner, "anonymous_device_id") != nullptr, json_is_object(inner));
        EXPECT_TRUE(!inner || inner->refcount == 1);
    }
}

TEST_F(Trace, OneTraceIsABatchOfItsOwn)
{
    libzorv_log_level = 1;
    CloudHost host(service({answer(202)}));
    const Json trace = loaded(R"({"type":"a"})"), meta = loaded(R"({"type":"outer"})");
    EXPECT_EQ(send_trace_with_meta(trace.get(), meta.get()), TRACE_ACCEPTED);
    EXPECT_EQ(trace->refcount, 1U);
    EXPECT_EQ(send_trace_with_meta(nullptr, nullptr), -1);

    const Json data = loaded(R"({"k":1})"), list = loaded("[]");
    EXPECT_EQ(send_trace_simple("net", "up", json_incref(data.get())), TRACE_ACCEPTED);
    EXPECT_EQ(send_trace_simple("net", "\xff", json_incref(list.get())), TRACE_ACCEPTED);
    EXPECT_EQ(send_trace_simple(nullptr, nullptr, nullptr), TRACE_ACCEPTED);
    EXPECT_EQ(data->refcount + list->refcount, 2U);
    std::vector<std::string> sent;
    for (const auto &request : host.received())
        sent.push_back(request.body.substr(request.body.find("\"traces\":")));
    EXPECT_THAT(
        sent,
        ElementsAre(R"("traces":[{"type":"a"}]})",
                    R"("traces":[{"payload":{"contentType":"application/json","data":"{\"k\":1}"},)"
                    R"("type":"up","namespace":"net"}]})",
                    R"("traces":[{"namespace":"net"}]})", R"("traces":[{}]})"));
}

TEST_F(Trace, TheEnvironmentSelectsTheService)
{
    libzorv_log_level = 1;
    CloudHost host(
        {.sites = {{kProduction}, {"trace.stage.zorv.example"}, {"trace.dev.zorv.example"}},
         .answers = {answer(202)}});
    const struct {
        const char *config, *build, *host;
    } rows[] = {
        {"", kRelease, "trace.zorv.example"},
        {"mgmt.kelo.env=stage\n", kRelease, "trace.stage.zorv.example"},
        {"mgmt.kelo.env=dev\n", kRelease, "trace.dev.zorv.example"},
        {"", "scm_reftype=branch\n", "trace.dev.zorv.example"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.host);
        file("/tmp/system.cfg", row.config);
        file("/usr/lib/build.properties", row.build);
        EXPECT_EQ(send_batch(), TRACE_ACCEPTED);
        const auto requests = host.received();
        ASSERT_EQ(requests.size(), 1U);
        EXPECT_EQ(requests[0].host, row.host);
    }
}

TEST_F(Trace, AUnitThatDoesNotReportSendsNothing)
{
    libzorv_log_level = 16;
    CloudHost host(service({answer(202)}));
    for (const char *mode : {"0\n", "0", " 00 off\n"}) {
        file(kMode, mode);
        EXPECT_EQ(send_batch(), TRACE_OFF) << mode;
        EXPECT_EQ(send_traces(nullptr, nullptr), TRACE_OFF);
        EXPECT_EQ(send_trace_with_meta(nullptr, nullptr), TRACE_OFF);
        const Json data = loaded("{}");
        EXPECT_EQ(send_trace_simple("a", "b", json_incref(data.get())), TRACE_OFF);
        EXPECT_EQ(data->refcount, 1U);
    }
    EXPECT_THAT(host.received(), IsEmpty());
    EXPECT_THAT(logged(), IsEmpty());
    for (const char *mode : {"1\n", "2\n", "", "off\n", "-1\n"}) {
        file(kMode, mode);
        EXPECT_EQ(send_batch(), TRACE_ACCEPTED) << mode;
    }
    remove(kMode);
    EXPECT_EQ(send_batch(), TRACE_ACCEPTED);
    logged();
    EXPECT_EQ(send_traces(Json(json_object()).get(), nullptr), -1);
    EXPECT_THAT(logged(),
                testing::Contains("[debug] trace.send_traces(): Traces must be an array"));
    EXPECT_EQ(host.received().size(), 6U);
}

TEST_F(Trace, Only202IsSuccess)
{
    libzorv_log_level = 16;
    const std::string large(3000, 'x');
    const struct {
        int status;
        std::string body, logged;
    } rows[] = {
        {200, "OK", "OK"},
        {204, "", ""},
        {404, "<html>\nno", "<html>\nno"},
        {500, std::string("a\0b", 3), "a"}, // as any text, up to its NUL
        {503, large, large.substr(0, 1024)},
    };
    std::vector<cloud::Answer> answers;
    for (const auto &row : rows) {
        answers.push_back(answer(row.status, row.body));
        answers.back().times = 1;
    }
    CloudHost host(service(answers));
    for (const auto &row : rows) {
        SCOPED_TRACE(row.status);
        logged();
        EXPECT_EQ(send_batch(), TRACE_FAILED);
        std::string text;
        for (const auto &line : logged())
            if (line.find("put_trace") != line.npos || !text.empty())
                text += line + "\n";
        EXPECT_EQ(text, "[debug] trace.put_trace(): PUT 'https://trace.zorv.example/traces' "
                        "failed: [" +
                            std::to_string(row.status) + "] " + row.logged + "\n");
    }
}

// What a service does that is none: each is a failed request, of which the first is a warning.
TEST_F(Trace, OnlyTheFirstFailedRequestIsLogged)
{
    libzorv_log_level = 4;
    const struct {
        const char *what;
        cloud::Script script;
        const char *message; // libcurl's code and its meaning
    } rows[] = {
        {"no such name", {}, "[6] Couldn't resolve host name"},
        {"another authority", service({}, Identity::untrusted),
         "[60] SSL peer certificate or SSH remote key was not OK"},
        {"reset at once", service({}, Identity::reset), "[35] SSL connect error"},
        {"reset in the answer",
         service({{.path = "/traces", .status = 202, .body = "12", .conduct = Conduct::reset}}),
         "[56] Failure when receiving data from the peer"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        const CloudHost host(row.script);
        EXPECT_EQ(send_batch(), TRACE_FAILED);
        if (&row == rows)
            EXPECT_THAT(logged(), testing::Contains("[warn ] trace.put_trace(): PUT "
                                                    "'https://trace.zorv.example/traces' failed: " +
                                                    std::string(row.message)));
        else
            EXPECT_THAT(logged(), testing::Not(testing::Contains(HasSubstr("put_trace"))));
    }
}

TEST_F(Trace, ASilencedFailureCountsAsLogged)
{
    libzorv_log_level = 1;
    EXPECT_EQ(send_batch(), TRACE_FAILED);
    libzorv_log_level = 4;
    EXPECT_EQ(send_batch(), TRACE_FAILED);
    EXPECT_THAT(logged(), testing::Not(testing::Contains(HasSubstr("put_trace"))));
}

TEST_F(Trace, TheBackOffDoublesUntilItIsADay)
{
    libzorv_log_level = 0;
    for (int failure = 1; failure <= 4; ++failure)
        ASSERT_EQ(send_batch(), TRACE_FAILED) << failure; // at once, one behind the other
    uint64_t delay = 0;
    for (int failure = 5; failure <= 22; ++failure) {
        SCOPED_TRACE(failure);
        g_clock += delay;
        if (delay != 0) {
            --g_clock;
            EXPECT_EQ(send_batch(), TRACE_BACK_OFF);
            EXPECT_EQ(send_traces(nullptr, nullptr), TRACE_BACK_OFF);
            ++g_clock;
        }
        ASSERT_EQ(send_batch(), TRACE_FAILED);
        delay = delay == 0 ? 1000 : 2 * delay;
    }
    EXPECT_EQ(delay, 131072000U);
    const CloudHost host(service({answer(202)})); // too late
    for (const uint64_t time : {uint64_t{0}, delay, 365 * uint64_t{86400000}}) {
        g_clock += time;
        EXPECT_EQ(send_batch(), TRACE_STOPPED);
        EXPECT_EQ(send_traces(nullptr, nullptr), TRACE_STOPPED);
    }
    file(kMode, "0\n");
    EXPECT_EQ(send_batch(), TRACE_OFF);
}

TEST_F(Trace, AnyAnswerEndsTheBackOff)
{
    libzorv_log_level = 0;
    for (int round = 0; round < 2; ++round) {
        for (int failure = 1; failure <= 6; ++failure) {
            EXPECT_EQ(send_batch(), TRACE_FAILED);
            g_clock += failure == 5 ? 1000 : 0;
        }
        g_clock += 1999;
        EXPECT_EQ(send_batch(), TRACE_BACK_OFF);
        g_clock += 1;
        {
            CloudHost host(service({answer(500)}));
            EXPECT_EQ(send_batch(), TRACE_FAILED);
            EXPECT_EQ(send_batch(), TRACE_FAILED); // at once
            EXPECT_EQ(host.received().size(), 2U);
        }
    }
    // A clock that was set back is too early, with a back-off and without.
    g_clock -= 1;
    EXPECT_EQ(send_batch(), TRACE_BACK_OFF);
    g_clock += 1;
    EXPECT_EQ(send_batch(), TRACE_FAILED);
}

TEST_F(Trace, DumpsTheReferencesOfAllParts)
{
    const Json value = loaded(R"({"list":["x",{}],"n":1})");
    const Json shared(json_incref(json_object_get(value.get(), "list")));
    libzorv_log_level = 15;
    dump_refcount(value.get(), "label");
    EXPECT_THAT(logged(), IsEmpty());
    libzorv_log_level = 16;
    dump_refcount(nullptr, "label");
    EXPECT_THAT(logged(), IsEmpty());
    dump_refcount(value.get(), "label");
    std::vector<std::string> texts;
    const std::string prefix = "[debug] trace.dump_refcount(): ";
    for (const auto &line : logged()) {
        EXPECT_THAT(line, testing::StartsWith(prefix));
        texts.push_back(line.substr(prefix.size()));
    }
    EXPECT_THAT(texts,
                ElementsAre("label", "refcount=1", "{", "list", "refcount=2", "[", "refcount=1",
                            "refcount=1", "{", "}", "]", "n", "refcount=1", "}"));
}

#include <zorv/trace.h>

#include <ctime>

#include <sys/time.h>

#include "telemetry/crash_unit.h"

using namespace std::string_literals;
using cloud::Conduct;
using cloud::Identity;

namespace {

constexpr char kMode[] = "/var/run/system.analytics.mode";
constexpr char kRelease[] = "scm_reftype=atag\n"; // of /usr/lib/build.properties
constexpr char kFailed[] = "trace.put_trace(): PUT 'https://trace.zorv.example/traces' failed: [";

const std::string kId(64, 'c'); // as long as an id may be

uint64_t g_clock = 0; // milliseconds since 1970; 0 for the machine's own clock

class Trace : public Reporting {
protected:
    Trace()
    {
        g_clock = 1700000000000;
        libzorv_log_level = 16;
        file("/usr/lib/build.properties", kRelease);
    }

    // What was sent since the last call: host and document, "~" for what a known device tells.
    std::string sent()
    {
        const std::pair<std::string, const char *> shorter[] = {
            {".zorv.example", ""},
            {R"("meta":{"timestamp":1700000000000,"type":"event")", "now"},
            {R"("model":"TARN-R","version":"v2.4.4.77","board_rev":"9","manufacturer_id":"255",)"
             R"("controller.version":"7.1","is_default":"true","mfg_week":"202647",)"
             R"("anonymous_controller_id":")" +
                 kId + R"(","anonymous_site_id":"site","anonymous_device_id":"0123456789abcdef")",
             "~"},
        };
        std::string text;
        for (const auto &request : host_->received())
            text += request.host + " " + request.body;
        for (const auto &[part, name] : shorter)
            if (const size_t at = text.find(part); at != text.npos)
                text.replace(at, part.size(), name);
        return text;
    }

    static int send_batch() { return send_traces(loaded("[{}]").get(), nullptr); }
};

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
    const auto payload = trace_object_set_payload_new;
    constexpr char kStrings[] = "must be an object containing only string values";
    const struct {
        int (*set)(json_t *, json_t *);
        std::string name, value, message;
    } rows[] = {
        {payload, "payload", R"({"b":[1,"é"],"a":null})", ""},
        {payload, "payload", "[]", "none"},
        {trace_object_set_timestamp_new, "timestamp", "-1", ""},
        {trace_object_set_timestamp_new, "timestamp", "\"1\"", "must be an integer"},
        {trace_object_set_type_new, "type", "\"\"", ""},
        {trace_object_set_type_new, "type", "1", "must be a string"},
        {trace_object_set_namespace_new, "namespace", "\"net\"", ""},
        {trace_object_set_namespace_new, "namespace", "{}", "must be a string"},
        {trace_object_set_source_new, "source", "{}", ""},
        {trace_object_set_source_new, "source", R"({"a":"b","c":{}})", kStrings},
        {trace_object_set_meta_new, "meta", R"({"a":"b","c":""})", ""},
        {trace_object_set_meta_new, "meta", R"({"a":1})", kStrings},
    };
    for (const auto &[set, name, text, message] : rows) {
        SCOPED_TRACE(name + text);
        const Json trace(trace_object()), value = loaded(text);
        const bool is_taken = message.empty();
        EXPECT_EQ(set(trace.get(), json_incref(value.get())), is_taken ? 0 : -1);
        const std::string member =
            set != payload
                ? text
                : R"({"contentType":"application/json","data":"{\"b\":[1,\"é\"],\"a\":null}"})";
        EXPECT_EQ(dumped(trace.get()), is_taken ? "{\"" + name + "\":" + member + "}" : "{}");
        EXPECT_EQ(log_text(), is_taken || set == payload
                                  ? ""
                                  : "[debug] trace.trace_object_set_" + name + "_new(): Trace " +
                                        name + " " + message + "\n");
        EXPECT_EQ(set(nullptr, json_incref(value.get())), -1); // no trace to set it in
        EXPECT_EQ(value->refcount, is_taken && set != payload ? 2U : 1U);
        EXPECT_EQ(set(trace.get(), nullptr), -1);
        libzorv_log_level = 15;
        logged();
        EXPECT_EQ(set(trace.get(), json_null()), -1);
        EXPECT_EQ(log_text(), "");
        libzorv_log_level = 16;
    }
}

TEST_F(Trace, ABatchTakesTracesAndNothingElseIsAnArray)
{
    const Json array(trace_array()), trace(trace_object());
    EXPECT_EQ(trace_array_append_new(array.get(), json_incref(trace.get())), 0);
    EXPECT_EQ(trace_array_append_new(trace.get(), json_incref(trace.get())), -1);
    EXPECT_EQ(trace_array_append_new(nullptr, json_incref(trace.get())), -1);
    EXPECT_EQ(trace_array_append_new(array.get(), nullptr), -1);
    EXPECT_EQ(dumped(array.get()), "[{}]");
    trace_decref(nullptr);
    trace_decref(json_incref(trace.get()));
    EXPECT_EQ(trace->refcount, 2U);
}

TEST_F(Trace, DumpsTheReferencesOfAllParts)
{
    const Json value = loaded(R"({"list":["x",{}],"n":1})");
    const Json shared(json_incref(json_object_get(value.get(), "list")));
    libzorv_log_level = 15;
    dump_refcount(value.get(), "label");
    libzorv_log_level = 16;
    dump_refcount(nullptr, "label");
    dump_refcount(value.get(), "label");
    EXPECT_EQ(
        std::regex_replace(log_text(), std::regex("\\[debug\\] trace.dump_refcount\\(\\): "), ""),
        "label\nrefcount=1\n{\nlist\nrefcount=2\n[\nrefcount=1\nrefcount=1\n{\n}\n]\n"
        "n\nrefcount=1\n}\n");

    const Json trace(trace_object()), loop(json_object());
    json_t *const list = json_array();
    json_object_set_new(loop.get(), "list", list);
    json_array_append(list, loop.get()); // it contains itself
    dump_refcount(loop.get(), "loop");
    EXPECT_THAT(logged(), testing::SizeIs(testing::Lt(100)));
    EXPECT_EQ(trace_object_set_payload_new(trace.get(), json_incref(loop.get())), -1);
    EXPECT_EQ(loop->refcount, 2U);
    EXPECT_EQ(dumped(trace.get()), "{}");
    EXPECT_EQ(log_text(), "[debug] trace.trace_object_set_payload_new(): Failed to create payload "
                          "object\n");
    json_array_clear(list);
}

// Each row is what happens after the ones above it.
TEST_F(Trace, EnvelopesTellWhichDeviceSpeaks)
{
    serve_at("trace", {answer(202)});
    file("/proc/zorvhal/system.info",
         "vendorid=1f3d\nsystemid=7e8e\nboardrevision=9\nmanufid=00ff\n"
         "mfgweek=202647\ndevice.anonid=0123456789abcdef\n");
    file("/proc/zorvhal/status/IsDefault", "true\n");
    file("/usr/etc/.version", "v2.4.4\n");
    file("/usr/etc/.build", "77\n");
    constexpr char kConfig[] = "/tmp/system.cfg", kBuild[] = "/usr/lib/build.properties";
    const std::string known = "pluvo.version=7.1\npluvo.anonymous_controller_id=" + kId +
                              "and more\npluvo.anonymous_site_id=site\n";
    const std::string begin = R"({now,"meta":{)", end = R"(,"source":{}},"traces":)";
    const std::string plain = begin + "~}" + end + "[{}]}";
    const struct {
        const char *path;
        std::string text; // of that file
        const char *traces, *meta;
        int rc;
        std::string sent;
        const char *log = "";
    } rows[] = {
        {kConfig, known, "[{}]", "null", 202, "trace " + plain},
        {kConfig, known + "mgmt.kelo.env=dev\n", "[{}]", "{}", 202, "trace.dev " + plain},
        {kConfig, known + "mgmt.kelo.env=stage\n", "[{}]", "[]", 202, "trace.stage " + plain},
        {kConfig, known, "{}", "null", -1, "",
         "[debug] libzorv_util.freadline(): fsreadline returned error code -2\n"
         "[debug] trace.send_traces(): Traces must be an array\n"},
        {kBuild, "scm_reftype=branch\n", "[{}]", "null", 202, "trace.dev " + plain},
        {kBuild, kRelease, "[]", R"({"timestamp":7,"type":"crash","source":{"a":1},"other":1})",
         202,
         R"(trace {"meta":{"timestamp":7,"type":"crash","meta":{~},"source":{"a":1}},"traces":[]})"},
        {kMode, "1\n", "[1]", R"({"timestamp":"soon","type":[],"source":[],"meta":"x"})", 202,
         R"(trace {"meta":{"timestamp":"soon","type":[],"meta":{~})" + end + "[1]}"},
        {kMode, "2\n", "[{}]", R"({"meta":{"own":5,"type":1}})", 202,
         "trace " + begin + R"("own":5,"type":1,~})" + end + "[{}]}"},
        {kMode, "0\n", "[{}]", "null", TRACE_OFF, ""},
        {kMode, "off\n", "[{}]", "null", 202, "trace " + plain},
        {kMode, "0", "{}", "null", TRACE_OFF, ""},
        {kMode, "-1\n", "[{}]", "null", 202, "trace " + plain},
        {kMode, " 00 off\n", "[{}]", "null", TRACE_OFF, ""},
        {kMode, "", "[{}]", "null", 202, "trace " + plain},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.path + row.text + row.meta);
        file(row.path, row.text);
        logged();
        const Json traces = loaded(row.traces), meta = loaded(row.meta);
        EXPECT_EQ(send_traces(traces.get(), meta.get()), row.rc == 202 ? TRACE_ACCEPTED : row.rc);
        EXPECT_EQ(sent(), row.sent);
        if (row.rc == 202)
            logged(); // much of the transfer
        EXPECT_EQ(log_text(), row.log);
        EXPECT_EQ(traces->refcount, 1U);
        const json_t *const inner = json_object_get(meta.get(), "meta");
        EXPECT_EQ(json_object_get(inner, "anonymous_device_id") != nullptr, json_is_object(inner));
        EXPECT_TRUE(!inner || inner->refcount == 1);
    }
}

TEST_F(Trace, OneTraceIsABatchOfItsOwn)
{
    serve_at("trace", {answer(202)});
    file("/tmp/system.cfg", "pluvo.anonymous_site_id=\xff\n"); // no UTF-8: left out
    const Json trace = loaded(R"({"type":"a"})"), meta = loaded(R"({"type":"outer"})");
    const Json data = loaded(R"({"k":1})"), list = loaded("[]");
    EXPECT_EQ(send_trace_with_meta(nullptr, nullptr), -1);
    EXPECT_EQ(send_trace_with_meta(trace.get(), meta.get()), TRACE_ACCEPTED);
    EXPECT_EQ(sent(), R"(trace {"meta":{"timestamp":1700000000000,"type":"outer","meta":{)"
                      R"("model":"","version":"unknown.0","board_rev":"-1","manufacturer_id":"0",)"
                      R"("controller.version":"unknown","is_default":"false","mfg_week":"2005",)"
                      R"("anonymous_device_id":"0000000000000000"},"source":{}},)"
                      R"("traces":[{"type":"a"}]})");
    EXPECT_THAT(logged(), Contains("[warn ] trace.set_version(): Couldn't obtain firmware version! "
                                   "error code = -2"));
    file("/proc/zorvhal/system.info", "device.anonid=0123456789abcdef\n"); // the stand-in stays
    EXPECT_EQ(send_trace_simple("net", "up", json_incref(data.get())), TRACE_ACCEPTED);
    EXPECT_THAT(sent(),
                testing::EndsWith(R"("anonymous_device_id":"0000000000000000"},"source":{}},)"
                                  R"("traces":[{"payload":{"contentType":)"
                                  R"("application/json","data":"{\"k\":1}"},)"
                                  R"("type":"up","namespace":"net"}]})"));
    EXPECT_EQ(send_trace_simple("net", "\xff", json_incref(list.get())), TRACE_ACCEPTED);
    EXPECT_THAT(sent(), testing::EndsWith(R"("traces":[{"namespace":"net"}]})"));
    EXPECT_EQ(send_trace_simple(nullptr, nullptr, nullptr), TRACE_ACCEPTED);
    EXPECT_THAT(sent(), testing::EndsWith(R"("traces":[{}]})"));
    file(kMode, "0\n");
    logged();
    EXPECT_EQ(send_trace_simple("a", "b", json_incref(data.get())), TRACE_OFF);
    EXPECT_EQ(send_trace_with_meta(nullptr, nullptr), TRACE_OFF);
    EXPECT_EQ(log_text(), "");
    EXPECT_EQ(trace->refcount + data->refcount + list->refcount, 3U);
}

TEST_F(Trace, Only202IsSuccess)
{
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
    for (const auto &row : rows) {
        serve_at("trace", {answer(row.status, row.body)});
        EXPECT_EQ(send_batch(), TRACE_FAILED);
        EXPECT_THAT(log_text(),
                    testing::EndsWith("[debug] " + (kFailed + std::to_string(row.status)) + "] " +
                                      row.logged + "\n"));
    }
}

// What a service does that is none: each is a failed request, of which the first is a warning.
TEST_F(Trace, OnlyTheFirstFailedRequestIsLogged)
{
    libzorv_log_level = 4;
    EXPECT_EQ(send_batch(), TRACE_FAILED);
    EXPECT_THAT(logged(), Contains("[warn ] " + (kFailed + "6] Couldn't resolve host name"s)));
    const std::pair<Identity, Conduct> rows[] = {{Identity::untrusted, Conduct::whole},
                                                 {Identity::reset, Conduct::whole},
                                                 {Identity::trusted, Conduct::reset}};
    for (const auto &[identity, conduct] : rows) {
        serve_at("trace", {{.path = "/traces", .status = 202, .body = "12", .conduct = conduct}},
                 identity);
        EXPECT_EQ(send_batch(), TRACE_FAILED);
        EXPECT_THAT(log_text(), testing::Not(HasSubstr("put_trace")));
    }
}

TEST_F(Trace, ASilencedFailureCountsAsLogged)
{
    for (const int level : {1, 4}) {
        libzorv_log_level = level;
        EXPECT_EQ(send_batch(), TRACE_FAILED);
    }
    EXPECT_THAT(log_text(), testing::Not(HasSubstr("put_trace")));
}

TEST_F(Trace, TheBackOffDoublesUntilItIsADay)
{
    libzorv_log_level = 0;
    for (int failure = 1; failure <= 4; ++failure)
        ASSERT_EQ(send_batch(), TRACE_FAILED) << failure; // at once, one behind the other
    for (uint64_t delay = 1000; delay <= 131072000; delay *= 2) {
        SCOPED_TRACE(delay);
        ASSERT_EQ(send_batch(), TRACE_FAILED);
        g_clock += delay - 1;
        const int want = delay < 86400000 ? TRACE_BACK_OFF : TRACE_STOPPED;
        EXPECT_EQ(send_batch(), want);
        EXPECT_EQ(send_traces(nullptr, nullptr), want);
        ++g_clock;
    }
    serve_at("trace", {answer(202)}); // too late
    for (const uint64_t time : {0, 131072000, 2000000000}) {
        g_clock += time;
        EXPECT_EQ(send_batch(), TRACE_STOPPED);
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
        serve_at("trace", {answer(500)});
        EXPECT_EQ(send_batch(), TRACE_FAILED);
        EXPECT_EQ(send_batch(), TRACE_FAILED); // at once
        EXPECT_EQ(host_->received().size(), 2U);
        host_.reset();
    }
    // A clock that was set back is too early, with a back-off and without.
    g_clock -= 1;
    EXPECT_EQ(send_batch(), TRACE_BACK_OFF);
    g_clock += 1;
    EXPECT_EQ(send_batch(), TRACE_FAILED);
}

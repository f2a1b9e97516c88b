
#include <ctime>

#include <sys/time.h>

#include "telemetry/crash_unit.h"

using testing::EndsWith;

namespace {

constexpr char kMode[] = "/var/run/system.analytics.mode";
constexpr char kConfig[] = "/tmp/system.cfg";
constexpr char kFailed[] = "trace.put_trace(): PUT 'https://trace.zorv.example/traces' failed: [";

const std::string kId(64, 'c'); // as long as an id may be

uint64_t g_clock = 0; // milliseconds since 1970; 0 for the machine's own clock

class Trace : public Reporting {
protected:
    Trace()
    {
        g_clock = 1700000000000;
        libzorv_log_level = 16;
        file("/usr/lib/build.properties", "scm_reftype=atag\n");
    }

    void serve_traces(int status, std::string body = "")
    {
        serve({{.path = "/traces", .method = "PUT", .status = status, .body = std::move(body)}});
    }

    static int send_batch() { return send_traces(loaded("[{}]").get(), nullptr); }
};

} // namespace

// The clock that the back-off goes by, of the library as well.
extern "C" int gettimeofday(timeval *__restrict now, void *__restrict) noexcept
{
    *now = {static_cast<time_t>(g_clock / 1000),
            static_cast<suseconds_t>(g_clock % 1000 * 1000 + 999)};
    if (g_clock == 0)
        *now = {time(nullptr), 0};
    return 0;
}

TEST_F(Trace, SettersTakeTheReferenceWhetherTheValueFitsOrNot)
{
    const std::string strings = " must be an object containing only string values\n";
    // The setter, the value; the result, the trace and the log.
    const std::tuple<int (*)(json_t *, json_t *), const char *, std::string> rows[] = {
        {trace_object_set_payload_new, R"({"b":["é"]})",
         R"(0{"payload":{"contentType":"application/json","data":"{\"b\":[\"é\"]}"}})"},
        {trace_object_set_payload_new, "[]", "-1{}"},
        {trace_object_set_timestamp_new, "\"1\"",
         "-1{}[debug] Trace timestamp must be an integer\n"},
        {trace_object_set_type_new, "1", "-1{}[debug] Trace type must be a string\n"},
        {trace_object_set_namespace_new, "\"net\"", R"(0{"namespace":"net"})"},
        {trace_object_set_namespace_new, "{}", "-1{}[debug] Trace namespace must be a string\n"},
        {trace_object_set_source_new, R"({"a":"b","c":1})", "-1{}[debug] Trace source" + strings},
        {trace_object_set_meta_new, R"({"a":""})", R"(0{"meta":{"a":""}})"},
        {trace_object_set_meta_new, "[]", "-1{}[debug] Trace meta" + strings},
    };
    for (const auto &[set, text, want] : rows) {
        Json trace(trace_object());
        const Json value = loaded(text);
        const std::string rc = std::to_string(set(trace.get(), json_incref(value.get())));
        const std::regex place(" trace\\..*\\(\\):");
        EXPECT_EQ(rc + dumped(trace.get()) + std::regex_replace(log_text(), place, ""), want);
        EXPECT_EQ(set(nullptr, json_incref(value.get())), -1); // no trace to set it in
        trace.reset();
        EXPECT_EQ(value->refcount, 1U);
        logged();
    }
}

TEST_F(Trace, DumpsTheReferencesOfAllParts)
{
    const Json value = loaded(R"({"list":["x",{}],"n":1})"), trace(trace_object());
    json_t *const list = json_incref(json_object_get(value.get(), "list"));
    dump_refcount(nullptr, "label");
    dump_refcount(value.get(), "label");
    const std::regex line("\\[debug\\] trace.dump_refcount\\(\\): (.*)\n");
    EXPECT_EQ(std::regex_replace(log_text(), line, "$1 "),
              "label refcount=1 { list refcount=2 [ refcount=1 refcount=1 { } ] n refcount=1 } ");

    json_array_append(list, value.get()); // it contains itself
    dump_refcount(value.get(), "loop");
    EXPECT_THAT(logged(), testing::SizeIs(testing::Lt(200)));
    EXPECT_EQ(trace_object_set_payload_new(trace.get(), json_incref(value.get())), -1);
    EXPECT_EQ(log_text(), "[debug] trace.trace_object_set_payload_new(): Failed to create payload "
                          "object\n");
    json_array_clear(list);
    json_decref(list);
}

// Each row is what happens after the ones above it.
TEST_F(Trace, EnvelopesTellWhichDeviceSpeaks)
{
    serve_traces(202);
    file("/proc/zorvhal/system.info",
         "vendorid=1f3d\nsystemid=7e8e\nboardrevision=9\nmanufid=00ff\n"
         "mfgweek=202647\ndevice.anonid=0123456789abcdef\n");
    file("/proc/zorvhal/status/IsDefault", "true\n");
    file("/usr/etc/.version", "v2.4.4\n");
    file("/usr/etc/.build", "77\n");
    const std::string known = "pluvo.version=7.1\npluvo.anonymous_controller_id=" + kId +
                              "and more\npluvo.anonymous_site_id=site\n";
    const std::string device =
        R"("model":"TARN-R","version":"v2.4.4.77","board_rev":"9","manufacturer_id":"255",)"
        R"("controller.version":"7.1","is_default":"true","mfg_week":"202647",)"
        R"("anonymous_controller_id":")" +
        kId + R"(","anonymous_site_id":"site","anonymous_device_id":"0123456789abcdef"})";
    const std::string begin =
                          R"(/traces {"meta":{"timestamp":1700000000000,"type":"event","meta":{)",
                      end = device + R"(,"source":{}},"traces":[{}]})"
                                     "\n";
    // A file and its text, traces and meta, what comes of sending them.
    const std::tuple<const char *, std::string, const char *, const char *, int, std::string>
        rows[] = {
            {kConfig, known + "mgmt.kelo.env=dev\n", "[{}]", "{}", TRACE_ACCEPTED,
             "PUT trace.dev" + begin + end},
            {kConfig, known, "{}", "null", -1, ""},
            {kMode, "0\n", "[{}]", "null", TRACE_OFF, ""},
            {kMode, "off\n", "[]", R"({"timestamp":7,"type":"crash","source":{"a":1},"other":1})",
             TRACE_ACCEPTED,
             R"(PUT trace/traces {"meta":{"timestamp":7,"type":"crash","meta":{)" + device +
                 R"(,"source":{"a":1}},"traces":[]})"
                 "\n"},
            {kMode, "2\n", "[{}]", R"({"meta":{"own":5,"type":1},"source":[]})", TRACE_ACCEPTED,
             "PUT trace" + begin + R"("own":5,"type":1,)" + end},
        };
    for (const auto &[path, text, traces_text, meta_text, rc, want] : rows) {
        file(path, text);
        const Json traces = loaded(traces_text), meta = loaded(meta_text);
        EXPECT_EQ(send_traces(traces.get(), meta.get()), rc);
        EXPECT_EQ(received(), want);
        EXPECT_EQ(log_text().ends_with("[debug] trace.send_traces(): Traces must be an array\n"),
                  rc == -1);
        const json_t *const inner = json_object_get(meta.get(), "meta"); // is filled
        EXPECT_EQ(json_object_get(inner, "anonymous_device_id") != nullptr, json_is_object(inner));
        EXPECT_EQ(traces->refcount + (inner ? inner->refcount : 1), 2U);
    }
}

TEST_F(Trace, OneTraceIsABatchOfItsOwn)
{
    serve_traces(202);
    file(kConfig, "pluvo.anonymous_site_id=\xff\n"); // no UTF-8
    const Json trace = loaded(R"({"type":"a"})"), meta = loaded(R"({"type":"outer"})");
    const Json data = loaded(R"({"k":1})");
    EXPECT_EQ(send_trace_with_meta(nullptr, nullptr), -1);
    EXPECT_EQ(send_trace_with_meta(trace.get(), meta.get()), TRACE_ACCEPTED);
    EXPECT_THAT(logged(),
                Contains("[warn ] trace.add_device_fields(): Couldn't obtain firmware version! "
                         "error code = -2"));
    file("/proc/zorvhal/system.info",
         "device.anonid=0123456789abcdef\nboardrevision=-1\n"); // the stand-in stays
    EXPECT_EQ(send_trace_simple("net", "up\xff", json_incref(data.get())), TRACE_ACCEPTED);
    const std::string device =
        R"(,"meta":{"model":"","version":"unknown.0","board_rev":"-1","manufacturer_id":"0",)"
        R"("controller.version":"unknown","is_default":"false","mfg_week":"2005",)"
        "\"anonymous_site_id\":\"\xef\xbf\xbd\","
        R"("anonymous_device_id":"0000000000000000"},"source":{}},"traces":)";
    const std::string begin = R"(PUT trace/traces {"meta":{"timestamp":1700000000000,"type":")";
    const std::string sent = R"([{"payload":{"contentType":"application/json","data":"{\"k\":1}"},)"
                             "\"type\":\"up\xef\xbf\xbd\",\"namespace\":\"net\"}]";
    EXPECT_EQ(received(), begin + "outer\"" + device + "[{\"type\":\"a\"}]}\n" + begin + "event\"" +
                              device + sent + "}\n");
    file(kMode, "0\n");
    EXPECT_EQ(send_trace_simple("a", "b", json_incref(data.get())), TRACE_OFF);
    EXPECT_EQ(trace->refcount + data->refcount, 2U);
}

TEST_F(Trace, TheBackOffDoublesUntilItIsADay)
{
    libzorv_log_level = 0;
    for (int failure = 1; failure <= 4; ++failure)
        ASSERT_EQ(send_batch(), TRACE_FAILED) << failure; // at once, one behind the other
    libzorv_log_level = 4;                                // a silenced failure counts as logged
    for (uint64_t delay = 1000; delay <= 131072000; delay *= 2) {
        ASSERT_EQ(send_batch(), TRACE_FAILED);
        g_clock += delay - 1;
        const int want = delay < 86400000 ? TRACE_BACK_OFF : TRACE_STOPPED;
        EXPECT_EQ(send_batch(), want) << delay;
        EXPECT_EQ(send_traces(nullptr, nullptr), want);
        ++g_clock;
    }
    EXPECT_THAT(log_text(), testing::Not(HasSubstr("put_trace")));
    serve_traces(202); // too late
    g_clock += 2000000000;
    EXPECT_EQ(send_batch(), TRACE_STOPPED);
}

TEST_F(Trace, AnyAnswerEndsTheBackOff)
{
    EXPECT_EQ(send_batch(), TRACE_FAILED); // the first failed request is a warning
    EXPECT_THAT(log_text(),
                HasSubstr("[warn ] " + (kFailed + std::string("6] Couldn't resolve host name"))));
    const std::string large(3000, 'x');
    const std::pair<std::string, std::string> rows[] = {{"<html>\n\x1b\x7fno", "<html>   no"},
                                                        {std::string("a\0b", 3), "a"},
                                                        {large, large.substr(0, 1024)}};
    for (const auto &[body, shown] : rows) {
        for (int failure = shown[0] == '<' ? 2 : 1; failure <= 6; ++failure) {
            EXPECT_EQ(send_batch(), TRACE_FAILED);
            g_clock += failure == 5 ? 1000 : 0;
        }
        EXPECT_THAT(log_text(), testing::Not(HasSubstr("put_trace")));
        g_clock += 1999;
        EXPECT_EQ(send_batch(), TRACE_BACK_OFF);
        g_clock += 1;
        serve_traces(200, body);
        EXPECT_EQ(send_batch(), TRACE_FAILED); // only 202 is success
        EXPECT_EQ(send_batch(), TRACE_FAILED); // at once
        EXPECT_THAT(log_text(), EndsWith("[debug] " + (kFailed + ("200] " + shown)) + "\n"));
        EXPECT_EQ(host_->received().size(), 2U);
        host_.reset();
    }
    g_clock -= 1; // a clock that was set back is too early
    EXPECT_EQ(send_batch(), TRACE_BACK_OFF);
}

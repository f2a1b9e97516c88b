// What no unit of the default build shows: URLs at the limit, and memory that runs out.
#include <zorv/crash.h>

#include <cstring>
#include <string>

#include <jansson.h>
#include <zorv/log.h>

#include "core/own.h"
#include "support/allocation.h"
#include "support/device.h"
#include "telemetry/crash_report.h"
#include "telemetry/crash_store.h"

using namespace zorv;
using testing::ElementsAre;

namespace {

using CrashInside = Device;

TEST_F(CrashInside, AUrlOf127CharactersFits)
{
    const std::string begin = "https://crash.dev.zorv.example/v1/";
    char url[kReportUrl];
    const std::string fits(127 - begin.size(), 'k');
    EXPECT_EQ(build_crash_report_url(url, fits.c_str()), 0);
    EXPECT_EQ(url, begin + fits);
    EXPECT_EQ(build_crash_report_url(url, (fits + "k").c_str()), 128);
    EXPECT_EQ(build_crash_report_url(url, std::string(1000, 'k').c_str()), 1034);
}

TEST_F(CrashInside, MemoryRunsOutWhileALogIsPrepared)
{
    libzorv_log_use_syslog = 0;
    libzorv_log_level = 1;
    json_set_alloc_funcs(malloc, free);
    const std::string name = "a.tgz", store = "/tmp/store/";
    file(store + name, "");
    struct Handed {
        static void act(CrashLogWalk &walk) { walk.result.reset(json_incref(walk.meta.get())); }
    };
    int failures = 0;
    for (long n = 1;; ++n) {
        remove("/tmp/metas/a.tgz");
        CrashLogWalk walk = {.family = "vwire_disconnect",
                             .log_dir = store.c_str(),
                             .sent_dir = "/tmp/markers/",
                             .meta_dir = "/tmp/metas/",
                             .add_extra = nullptr,
                             .act = Handed::act,
                             .flags = kMetaCounted}; // as left by a disk that was full
        const long before = allocations();
        fail_allocation(n);
        EXPECT_EQ(iterate_crash_logs(walk), 0);
        fail_allocations_off();
        if (allocations() - before < n) {
            EXPECT_EQ(walk.error, 0);
            break;
        }
        // A member may be missing, or the whole meta; what is there is whole and was stored.
        EXPECT_TRUE(walk.error == 0 || walk.error == ENOMEM) << n;
        EXPECT_EQ(walk.result != nullptr, walk.error == 0) << n;
        failures += walk.error == ENOMEM ? 1 : 0;
        // One without a payload would keep the log from the service for good.
        const Json stored(json_loads(read("/tmp/metas/a.tgz").c_str(), 0, nullptr));
        EXPECT_TRUE(!stored || json_object_get(stored.get(), "payload")) << n;
    }
    EXPECT_GT(failures, 2);
    static_cast<void>(logged());
}

TEST_F(CrashInside, BothTextsOfAReportAreThoseOfJansson)
{
    const Json report(json_pack("{s:s, s:s, s:s, s:{s:[i, f, b, n, []], s:{}}}", "crash_log",
                                "a \"log\": 1,\n\ttwo\\ \\\" { \xc3\xa9 }\x01 ", "q\" \\", "", "  ",
                                " \\", "nested", "array", -1, 0.5, 1, "object"));
    ASSERT_TRUE(report);
    const ReportText text = dump_report(report.get());
    EXPECT_STREQ(text.posted.get(), Text(json_dumps(report.get(), JSON_COMPACT)).get());
    EXPECT_STREQ(text.kept.get(), Text(json_dumps(report.get(), JSON_INDENT(2))).get());

    json_object_set_new(report.get(), "long", json_string(std::string(102400, ' ').c_str()));
    const ReportText rest = dump_report(report.get());
    EXPECT_STREQ(rest.posted.get(), Text(json_dumps(report.get(), JSON_COMPACT)).get());
    EXPECT_EQ(rest.kept, nullptr);
    EXPECT_EQ(rest.length, strlen(Text(json_dumps(report.get(), JSON_INDENT(2))).get()));
}

TEST_F(CrashInside, MemoryRunsOutForAReport)
{
    libzorv_log_use_syslog = 0;
    json_set_alloc_funcs(malloc, free);
    const Json report(json_pack("{s:s}", "a", "b"));
    fail_allocation(1);
    EXPECT_EQ(generate_common_payload(nullptr, false), nullptr);
    fail_allocation(1);
    EXPECT_EQ(post_crash("https://127.0.0.1:1/", report.get(), nullptr), -1);
    fail_allocation(1);
    save_crash_payload(report.get());
    fail_allocation(1);
    EXPECT_EQ(json_object_capture_popen(report.get(), "a", "true"), -1);
    EXPECT_STREQ(json_string_value(json_object_get(report.get(), "a")), "");
    std::vector<std::string> lines;
    for (const std::string &line : logged())
        if (line.find("] crash.") != line.npos)
            lines.push_back(line);
    EXPECT_THAT(lines,
                ElementsAre("[error] crash.post_crash(): Failed to allocate curl response",
                            "[error] crash.save_crash_payload(): Invalid payload",
                            "[warn ] crash.json_object_capture_popen(): Failed to capture the "
                            "output of command true"));
}

} // namespace

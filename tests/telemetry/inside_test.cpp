// What no unit of the default build shows: a report's two texts, to the letter.

#include "support/device.h"
#include "telemetry/crash_report.h"

using namespace zorv;

namespace {

using CrashInside = Device;

TEST_F(CrashInside, BothTextsOfAReportAreThoseOfJansson)
{
    const Json report(json_pack("{s:s, s:s, s:{s:[i, f, b, n, []], s:{}}}", "crash_log",
                                "a \"log\": 1,\n\ttwo\\ \\\" { \xc3\xa9 }\x01 ", "q\" \\", "  ",
                                "nested", "array", -1, 0.5, 1, "object"));
    for (const size_t extra : {0U, 102400U}) {
        json_object_set_new(report.get(), " \\", json_string(std::string(extra, ' ').c_str()));
        const ReportText text = dump_report(report.get());
        const Text kept(json_dumps(report.get(), JSON_INDENT(2)));
        EXPECT_STREQ(text.posted.get(), Text(json_dumps(report.get(), JSON_COMPACT)).get());
        EXPECT_STREQ(text.kept.get(), extra == 0 ? kept.get() : nullptr);
        EXPECT_EQ(text.length, strlen(kept.get()));
    }
}

} // namespace

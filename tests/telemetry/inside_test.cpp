// What no unit of the default build shows: URLs at the limit, a report's two texts, tables in
// parts.
#include <cstring>
#include <string>

#include <unistd.h>

#include "core/own.h"
#include "support/device.h"
#include "support/enter.h"
#include "telemetry/crash_report.h"
#include "telemetry/proc_table.h"

using namespace zorv;

namespace {

using CrashInside = Device;
using Tables = Device;

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

TEST_F(CrashInside, BothTextsOfAReportAreThoseOfJansson)
{
    const Json report(json_pack("{s:s, s:s, s:s, s:{s:[i, f, b, n, []], s:{}}}", "crash_log",
                                "a \"log\": 1,\n\ttwo\\ \\\" { \xc3\xa9 }\x01 ", "q\" \\", "", "  ",
                                " \\", "nested", "array", -1, 0.5, 1, "object"));
    const ReportText text = dump_report(report.get());
    EXPECT_STREQ(text.posted.get(), Text(json_dumps(report.get(), JSON_COMPACT)).get());
    EXPECT_STREQ(text.kept.get(), Text(json_dumps(report.get(), JSON_INDENT(2))).get());

    json_object_set_new(report.get(), "long", json_string(std::string(102400, ' ').c_str()));
    const ReportText rest = dump_report(report.get());
    EXPECT_STREQ(rest.posted.get(), Text(json_dumps(report.get(), JSON_COMPACT)).get());
    EXPECT_EQ(rest.kept, nullptr);
    EXPECT_EQ(rest.length, strlen(Text(json_dumps(report.get(), JSON_INDENT(2))).get()));
}

// The lines that a table gives of a pipe, which stands for the kernel: first so many of 8 bytes,
// and one more that comes when those have been read.
size_t lines_of_pipe(size_t first)
{
    int ends[2];
    check(pipe2(ends, O_CLOEXEC), "pipe");
    ProcTable<256> table((Fd(ends[0])));
    Fd out(ends[1]);
    for (size_t n = 0; n < first; ++n)
        check(write(out.get(), "abcdefg\n", 8), "write");
    size_t count = 0;
    while (count < first && table.next())
        ++count;
    check(write(out.get(), "more\n", 5), "write");
    out.reset();
    while (table.next())
        ++count;
    return count;
}

TEST_F(Tables, AreNotAskedForLinesThatTheKernelDoesNotHave)
{
    EXPECT_EQ(lines_of_pipe(383), 383u); // there was room for another in the smallest of pages
    EXPECT_EQ(lines_of_pipe(384), 385u);
}

} // namespace

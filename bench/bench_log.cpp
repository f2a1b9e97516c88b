// One log line to standard error, against fprintf() of the same line to the same stream; and a call
// site that the verbosity silences, against an empty loop.
#include "ratio.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include <syslog.h>
#include <unistd.h>
#include <zorv/log.h>

namespace {

constexpr char kText[] = "Couldn't open the file";

void log_line(benchmark::State &state, long size)
{
    libzorv_log_use_syslog = 0;
    for ([[maybe_unused]] const auto _ : state)
        for (long i = 0; i < size; ++i)
            libzorv_log(LOG_ERR, "cfg", "parse", "%s: %d", kText, 42);
}

void print_line(benchmark::State &state, long size)
{
    for ([[maybe_unused]] const auto _ : state)
        for (long i = 0; i < size; ++i)
            fprintf(stderr, "%s[%d]: [%s] %s.%s(): %s: %d\n", program_invocation_short_name,
                    getpid(), "error", "cfg", "parse", kText, 42);
}

void silent_line(benchmark::State &state, long size)
{
    libzorv_log_level = 0;
    for ([[maybe_unused]] const auto _ : state)
        for (long i = 0; i < size; ++i) {
            if (libzorv_log_level >= 1)
                libzorv_log(LOG_ERR, "cfg", "parse", "%s: %d", kText, 42);
            benchmark::ClobberMemory();
        }
}

void no_line(benchmark::State &state, long size)
{
    for ([[maybe_unused]] const auto _ : state)
        for (long i = 0; i < size; ++i)
            benchmark::ClobberMemory();
}

} // namespace

void register_benches()
{
    if (!freopen("/dev/null", "w", stderr))
        abort();
    bench::add("log line", {1}, "zorv", log_line);
    bench::add("log line", {1}, "fprintf", print_line);
    bench::add("silenced line", {1000}, "zorv", silent_line);
    bench::add("silenced line", {1000}, "empty loop", no_line);
}

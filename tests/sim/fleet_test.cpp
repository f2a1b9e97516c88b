#include <numeric>

#include <gtest/gtest.h>

#include "fleet/fleet.h"

namespace {

using namespace fleet;

constexpr int kNever = 1'000'000; // seconds; longer than any of these cases
constexpr Daemon kEachMinute = {60, 60, true};

int64_t sum(const Result &result)
{
    return std::accumulate(result.requests.begin(), result.requests.end(), int64_t{0});
}

} // namespace

TEST(Fleet, EachReportArrivesOnce)
{
    const Result free =
        simulate({.kind = Kind::kernel_report, .units = 100, .seconds = 3600}, kEachMinute);
    EXPECT_EQ(sum(free), 100 * kStandsFor);
    EXPECT_EQ(free.delivered, 100 * kStandsFor);
    const Result crowded = simulate(
        {.kind = Kind::kernel_report, .units = 100, .seconds = 3600, .capacity = kStandsFor},
        {0, 60});
    EXPECT_EQ(sum(crowded), (100 + 41) * 60 / 2 * kStandsFor) << "one less each minute";
    EXPECT_EQ(crowded.last_delivered, 59 * 60);
    EXPECT_EQ(crowded.delivered, 60 * kStandsFor);
}

TEST(Fleet, LogsAreGivenUpAfterFiveFailures)
{
    const Result result = simulate(
        {.kind = Kind::crash_log, .units = 100, .seconds = 3600, .down_to = kNever}, kEachMinute);
    EXPECT_EQ(sum(result), 5 * 100 * kStandsFor);
    EXPECT_EQ(result.given_up, 100 * kStandsFor);
}

TEST(Fleet, TracesStopAfterTwentyTwoFailures)
{
    const Result result = simulate(
        {.kind = Kind::trace, .units = 10, .seconds = 3 * 86400, .down_to = kNever}, kEachMinute);
    EXPECT_EQ(sum(result), 22 * 10 * kStandsFor);
    EXPECT_EQ(result.delivered, 0);
}

// Means and outliers against the loops that define them, and what the first question about the
// board costs against the others.
#include "ratio.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <vector>

#include <zorv/avg.h>
#include <zorv/board.h>

namespace {

using Values = std::vector<int64_t>;

// Response times in microseconds, a few far off; or in nanoseconds, where the squares of a million
// add up to more than 2^53.
Values samples(long size, int64_t unit)
{
    std::mt19937_64 random(7); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same in every run
    Values values(static_cast<size_t>(size));
    for (int64_t &value : values) {
        value = (2000 + static_cast<int64_t>(random() % 1000)) * unit;
        if (random() % 500 == 0)
            value *= 20;
    }
    return values;
}

void mean(benchmark::State &state, long size)
{
    const Values values = samples(size, 1);
    for ([[maybe_unused]] const auto _ : state)
        benchmark::DoNotOptimize(zorv_avg_array(values.data(), values.size()));
}

int64_t plain_sum(const Values &values)
{
    int64_t sum = 0;
    for (const int64_t value : values)
        sum += value;
    return sum;
}

void plain_mean(benchmark::State &state, long size)
{
    const Values values = samples(size, 1);
    for ([[maybe_unused]] const auto _ : state)
        benchmark::DoNotOptimize(zorv_avg_round(plain_sum(values), size));
}

void plain_filter(Values &values, int64_t &centre, uint64_t &count)
{
    const auto n = static_cast<int64_t>(values.size());
    centre = zorv_avg_round(plain_sum(values), n);
    int64_t squares = 0;
    for (const int64_t value : values) {
        const auto distance = static_cast<double>(value - centre);
        squares = static_cast<int64_t>(std::fma(distance, distance, static_cast<double>(squares)));
    }
    const int64_t variance = squares / n;
    const auto deviation = static_cast<int64_t>(std::sqrt(static_cast<double>(variance)));
    count = 0;
    for (const int64_t value : values) {
        const int64_t z = (value - centre) * 100 / deviation;
        if (-300 <= z && z <= 300)
            values[count++] = value;
    }
}

// Each round filters a fresh copy; the copying is part of both.
template <int64_t Unit>
void filter(benchmark::State &state, long size)
{
    const Values given = samples(size, Unit);
    Values values = given;
    for ([[maybe_unused]] const auto _ : state) {
        memcpy(values.data(), given.data(), given.size() * sizeof given[0]);
        int64_t centre = 0;
        uint64_t count = values.size();
        zorv_remove_outliers(values.data(), &centre, &count);
        benchmark::DoNotOptimize(count);
    }
}

template <int64_t Unit>
void filter_plainly(benchmark::State &state, long size)
{
    const Values given = samples(size, Unit);
    Values values = given;
    for ([[maybe_unused]] const auto _ : state) {
        memcpy(values.data(), given.data(), given.size() * sizeof given[0]);
        int64_t centre = 0;
        uint64_t count = 0;
        plain_filter(values, centre, count);
        benchmark::DoNotOptimize(count);
    }
}

// On a machine that is no appliance: no system.info, so /proc/cpuinfo and the PCI list are read.
void identify_first(benchmark::State &state, long)
{
    for ([[maybe_unused]] const auto _ : state) {
        update_cached_board(nullptr);
        benchmark::DoNotOptimize(board_identify());
    }
}

void read_files(benchmark::State &state, long)
{
    char line[512];
    for ([[maybe_unused]] const auto _ : state)
        for (const char *path :
             {"/proc/zorvhal/system.info", "/proc/cpuinfo", "/proc/bus/pci/devices"})
            if (FILE *const file = fopen(path, "re")) {
                while (fgets(line, sizeof line, file))
                    benchmark::ClobberMemory();
                fclose(file);
            }
}

void identify_again(benchmark::State &state, long size)
{
    for ([[maybe_unused]] const auto _ : state)
        for (long i = 0; i < size; ++i)
            benchmark::DoNotOptimize(board_identify());
}

void no_call(benchmark::State &state, long size)
{
    for ([[maybe_unused]] const auto _ : state)
        for (long i = 0; i < size; ++i)
            benchmark::DoNotOptimize(i);
}

} // namespace

void register_benches()
{
    bench::add("mean", {1000, 1000000}, "zorv", mean);
    bench::add("mean", {1000, 1000000}, "plain loop", plain_mean);
    bench::add("outliers", {1000, 1000000}, "zorv", filter<1>);
    bench::add("outliers", {1000, 1000000}, "plain loop", filter_plainly<1>);
    bench::add("outliers, large sums", {1000, 1000000}, "zorv", filter<1000>);
    bench::add("outliers, large sums", {1000, 1000000}, "plain loop", filter_plainly<1000>);
    bench::add("identify, first", {1}, "zorv", identify_first);
    bench::add("identify, first", {1}, "reading the files", read_files);
    bench::add("identify, again", {1000}, "zorv", identify_again);
    bench::add("identify, again", {1000}, "empty loop", no_call);
}

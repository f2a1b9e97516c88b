// ratio.h - benchmarks that measure this library and its peers in one run, and report ratios.
//
// A bench file defines register_benches(), which adds each measured piece of work under a family
// name, once for "zorv" and once for each peer. ratio.cpp has main(): it runs them and prints, for
// every family and size, the time of each and this library's share of the peer's; and for families
// of several sizes how time grows with size, as the exponent of a power (1 is linear).
#ifndef ZORV_BENCH_RATIO_H
#define ZORV_BENCH_RATIO_H

#include <initializer_list>
#include <string>

#include <benchmark/benchmark.h>

namespace bench {

// The process's own time, or all that passes: for work that children do.
enum class Clock { cpu, real };

// Adds FAMILY/SIZE/WHO for every size; `work` is called with (benchmark::State &, long size).
template <class Work>
void add(const std::string &family, std::initializer_list<long> sizes, const std::string &who,
         [[maybe_unused]] Work work, [[maybe_unused]] Clock clock = Clock::cpu)
{
    for (const long size : sizes) {
        std::string name = family;
        name.append("/").append(std::to_string(size)).append("/").append(who);
#ifndef __clang_analyzer__ // takes what the benchmark library keeps until the end for a leak
        auto *bench = benchmark::RegisterBenchmark(
            name.c_str(), [work, size](benchmark::State &state) { work(state, size); });
        if (clock == Clock::real)
            bench->UseRealTime();
#endif
    }
}

} // namespace bench

// Defined by each bench file.
void register_benches();

#endif

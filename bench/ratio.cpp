#include "ratio.h"

#include <cmath>
#include <cstdio>
#include <iostream>
#include <map>
#include <utility>
#include <vector>

namespace {

constexpr char kOurs[] = "zorv";

// Nanoseconds of one piece of work, the best of its repetitions, by who did it.
using Times = std::map<std::string, double>;

class RatioReporter : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context &context) override
    {
        PrintBasicContext(&std::cerr, context);
        return true;
    }

    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs) {
            if (run.error_occurred)
                failed_.push_back(run.benchmark_name() + ": " + run.error_message);
            else if (run.run_type == Run::RT_Iteration)
                keep(run.run_name.function_name,
                     1e9 * time_of(run) / benchmark::GetTimeUnitMultiplier(run.time_unit));
        }
    }

    void Finalize() override
    {
        printf("\n%-18s %9s %14s   %-12s %14s %12s\n", "work", "size", "zorv ns", "peer", "peer ns",
               "zorv / peer");
        for (const auto &[family, sizes] : families_) {
            for (const auto &[size, times] : sizes)
                print_ratios(family, size, times);
        }
        for (const auto &[family, sizes] : families_)
            print_growth(family, sizes);
        for (const std::string &text : failed_)
            printf("FAILED %s\n", text.c_str());
    }

    bool has_failed() const { return !failed_.empty(); }

private:
    using Sizes = std::map<long, Times>;

    static double time_of(const Run &run)
    {
        return run.run_name.time_type == "real_time" ? run.GetAdjustedRealTime()
                                                     : run.GetAdjustedCPUTime();
    }

    void keep(const std::string &name, double ns)
    {
        const size_t last = name.rfind('/');
        const size_t middle = name.rfind('/', last - 1);
        Times &times = families_[name.substr(0, middle)]
                                [std::stol(name.substr(middle + 1, last - middle - 1))];
        const auto [found, is_new] = times.try_emplace(name.substr(last + 1), ns);
        if (!is_new && ns < found->second)
            found->second = ns;
    }

    static void print_ratios(const std::string &family, long size, const Times &times)
    {
        const auto ours = times.find(kOurs);
        if (ours == times.end())
            return;
        if (times.size() == 1)
            printf("%-18s %9ld %14.1f\n", family.c_str(), size, ours->second);
        for (const auto &[who, ns] : times) {
            if (who != kOurs)
                printf("%-18s %9ld %14.1f   %-12s %14.1f %12.3f\n", family.c_str(), size,
                       ours->second, who.c_str(), ns, ours->second / ns);
        }
    }

    // The exponent between the smallest and the largest size.
    static void print_growth(const std::string &family, const Sizes &sizes)
    {
        const auto &[small, small_times] = *sizes.begin();
        const auto &[large, large_times] = *sizes.rbegin();
        const auto from = small_times.find(kOurs);
        const auto to = large_times.find(kOurs);
        if (small == large || from == small_times.end() || to == large_times.end())
            return;
        printf("%-18s grows with the power %.2f of its size, %ld to %ld\n", family.c_str(),
               std::log(to->second / from->second) /
                   std::log(static_cast<double>(large) / static_cast<double>(small)),
               small, large);
    }

    std::map<std::string, Sizes> families_;
    std::vector<std::string> failed_;
};

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    register_benches();
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return reporter.has_failed() ? 1 : 0;
}


#include <cmath>

#include "platform/rows.h"

using Avg = Device;

using Values = std::vector<int64_t>;

constexpr int64_t kLeast = INT64_MIN, kMost = INT64_MAX;

// The result, the mean and how many values are kept.
static std::string filter(Values &values)
{
    int64_t mean = -7;
    uint64_t count = values.size();
    const int rc = zorv_remove_outliers(values.data(), &mean, &count);
    return shown(rc, mean, count);
}

// The filter as it is defined: one value after the other, nothing taken together.
static std::string filter_plainly(Values &values)
{
    uint64_t total = 0;
    for (const int64_t value : values)
        total += static_cast<uint64_t>(value);
    const auto n = static_cast<int64_t>(values.size());
    const int64_t mean = zorv_avg_round(static_cast<int64_t>(total), n);
    const auto distance = [mean](int64_t value, uint64_t times = 1) { // sums wrap
        return static_cast<int64_t>((static_cast<uint64_t>(value) - static_cast<uint64_t>(mean)) *
                                    times);
    };
    double sum = 0;
    for (const int64_t value : values) {
        const auto step = static_cast<double>(distance(value));
        sum = std::fma(step, step, sum);
    }
    const int64_t variance = (sum < 0x1p63 ? static_cast<int64_t>(sum) : kMost) / n;
    const auto deviation = static_cast<int64_t>(std::sqrt(static_cast<double>(variance)));
    size_t kept = 0;
    for (const int64_t value : values) {
        const int64_t z = deviation == 0 ? 0 : distance(value, 100) / deviation;
        if (-300 <= z && z <= 300)
            values[kept++] = value;
    }
    return shown(0, mean, kept);
}

TEST_F(Avg, QuotientsRoundHalfAwayFromZeroAndSamplesHaveWeights)
{
    // Sum, number, mean. Half of a number below zero is added towards zero; a sum may wrap.
    const int64_t kRows[][3] = {
        {5, 2, 3},   {-5, 2, -3}, {-4, 3, -1},          {7, -1, -7},
        {7, -2, -3}, {9, 0, 0},   {kLeast, -1, kLeast}, {kMost, 2, kLeast / 2}};
    for (const auto &[sum, n, mean] : kRows)
        EXPECT_EQ(zorv_avg_round(sum, n), mean) << sum << " / " << n;
    zorv_avg acc = {};
    const int64_t pair[2] = {kMost, -40000};
    const auto state = [&acc] {
        const int64_t mean = zorv_avg_compute(&acc, 4000000000u);
        return shown(acc.sum, acc.count, mean, mean == acc.average);
    };
    zorv_avg_increment_sum_weighted(&acc, 10, 3);
    zorv_avg_increment_sum_weighted(&acc, -1, 99); // no sample
    zorv_avg_increment_sum_weighted(&acc, -20, 1);
    EXPECT_EQ(state(), "10 4 3 1");
    zorv_avg_increment_sum_weighted(&acc, 0x10000, 0x8000); // 2^31 in 32 bits
    zorv_avg_increment(&acc, pair);
    EXPECT_EQ(state(), "9223372034707292169 -7228 4000000000 1"); // the weight is below zero
}

TEST_F(Avg, OutliersGoByTheFiltersDefinitionAtEveryScale)
{
    Values values = {10, 10, 10, 10, 1000, 10, 10, 10, 10, 10, 10}, none, one = {-7};
    EXPECT_EQ(filter(values) + ", " + filter(none) + ", " + filter(one),
              "0 100 10, -1 -7 0, 0 -7 1");
    // Of every width, and about bases whose squares are beyond 53 bits: these round step by step,
    // odd ones make each a tie. Some lie about three deviations off, some anywhere.
    std::mt19937_64 random(1); // NOLINT(cert-msc32-c,cert-msc51-cpp): a failure is to come again
    for (int bits = 1; bits <= 64; ++bits)
        for (const int64_t base : Values{0, 100, 94906265, 134217727, 134217728, 3037000499}) {
            values.resize(random() % 2 ? 255 + random() % 3 : 4000);
            for (int64_t &value : values)
                value = (static_cast<int64_t>(random()) >> (64 - bits)) / 2 +
                        (random() & 1 ? base : -base);
            for (size_t i = random() % 300; i < values.size(); i += 1 + random() % 100)
                values[i] = random() & 1 ? base / 100 * static_cast<int64_t>(290 + random() % 60)
                                         : static_cast<int64_t>(random()) >> random() % 64;
            Values plain = values;
            EXPECT_EQ(filter(values), filter_plainly(plain)) << base << " " << bits;
            EXPECT_EQ(values, plain); // behind the kept values, too
        }
}

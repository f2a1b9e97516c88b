#include <zorv/avg.h>

#include <cmath>
#include <random>

#include "platform/rows.h"

using Avg = Device;

namespace {

using Values = std::vector<int64_t>;

constexpr int64_t kLeast = INT64_MIN;
constexpr int64_t kMost = INT64_MAX;

// The result, the mean and how many values are kept.
std::string filter(Values &values)
{
    int64_t mean = -7;
    uint64_t count = values.size();
    const int rc = zorv_remove_outliers(values.data(), &mean, &count);
    return shown(rc, mean, count);
}

// The filter as it is defined: one value after the other, nothing taken together.
std::string filter_plainly(Values &values)
{
    const int64_t mean = zorv_avg_array(values.data(), values.size());
    const auto distance = [mean](int64_t value) {
        return static_cast<int64_t>(static_cast<uint64_t>(value) - static_cast<uint64_t>(mean));
    };
    double sum = 0;
    for (const int64_t value : values)
        sum = std::fma(static_cast<double>(distance(value)), static_cast<double>(distance(value)),
                       sum);
    const uint64_t squares = sum < 0x1p63 ? static_cast<uint64_t>(sum) : kMost;
    const auto deviation =
        static_cast<int64_t>(std::sqrt(static_cast<double>(squares / values.size())));
    size_t kept = 0;
    for (const int64_t value : values) {
        const auto hundredfold = static_cast<int64_t>(static_cast<uint64_t>(distance(value)) * 100);
        const int64_t z = deviation == 0 ? 0 : hundredfold / deviation;
        if (-300 <= z && z <= 300)
            values[kept++] = value;
    }
    return shown(0, mean, kept);
}

void expect_same_as_plainly(Values fast)
{
    Values plain = fast;
    EXPECT_EQ(filter(fast), filter_plainly(plain));
    EXPECT_EQ(fast, plain); // behind the kept values, too
}

} // namespace

TEST_F(Avg, QuotientsRoundHalfAwayFromZero)
{
    // Sum, number, mean. Half of a number below zero is added towards zero; a sum may wrap.
    const int64_t kRows[][3] = {
        {5, 2, 3},         {-5, 2, -3},        {-4, 3, -1},          {7, -1, -7},
        {7, -2, -3},       {9, 0, 0},          {kLeast, -1, kLeast}, {kMost, 2, kLeast / 2},
        {kMost, kMost, 0}, {kLeast, kLeast, 0}};
    for (const auto &[sum, n, mean] : kRows)
        EXPECT_EQ(zorv_avg_round(sum, n), mean) << sum << " / " << n;

    Values values;
    int64_t sum = 0;
    for (int64_t n = 1; n < 40; ++n) {
        values.push_back(n * n);
        sum += n * n;
        EXPECT_EQ(zorv_avg_array(values.data(), values.size()), zorv_avg_round(sum, n)) << n;
    }
    values = {kMost, 1, 0, 0, 2};
    EXPECT_EQ(zorv_avg_array(values.data(), 5), kLeast / 5); // the sum wraps
    EXPECT_EQ(zorv_avg_array(values.data(), 0), 0);
    EXPECT_EQ(zorv_avg_array(nullptr, 3), 0);
}

TEST_F(Avg, AnAccumulatorWeighsItsSamples)
{
    zorv_avg acc = {};
    const int64_t pair[2] = {kMost, -40000};
    const auto state = [&acc] { return shown(acc.sum, acc.count, acc.average); };
    EXPECT_EQ(zorv_avg_compute(&acc, 4000000000u), 4000000000);
    zorv_avg_increment_sum_weighted(&acc, 10, 3);
    zorv_avg_increment_sum_weighted(&acc, -1, 99); // no sample
    zorv_avg_increment_sum_weighted(&acc, -20, 1);
    EXPECT_EQ(state(), "10 4 4000000000");
    EXPECT_EQ(zorv_avg_compute(&acc, 7), 3);
    zorv_avg_increment_sum_weighted(&acc, 0x10000, 0x8000); // 2^31 in 32 bits
    EXPECT_EQ(state(), "-2147483638 32772 3");
    zorv_avg_increment(&acc, pair);
    EXPECT_EQ(state(), "9223372034707292169 -7228 3");
    EXPECT_EQ(zorv_avg_compute(&acc, 7), 7); // the weight is below zero
    zorv_avg_increment(&acc, pair);
    EXPECT_EQ(state(), "-2147483640 -47228 7"); // wraps
    zorv_avg_increment(&acc, nullptr);
    zorv_avg_increment(nullptr, pair);
    zorv_avg_increment_sum_weighted(nullptr, 1, 1);
    EXPECT_EQ(zorv_avg_compute(nullptr, 7), 7);
}

TEST_F(Avg, OutliersGoAndTheMeanStaysThatOfAll)
{
    Values three(10000, 100); // deviations are still within
    for (size_t i = 0; i < three.size(); i += 2)
        three[i] = -100;
    Values more = three;
    three.insert(three.end(), {300, -300});
    more.insert(more.end(), {301, -301});
    const std::pair<Values, const char *> kRows[] = {
        {{10, 10, 10, 10, 1000, 10, 10, 10, 10, 10, 10}, "0 100 10"},
        {{10, 10, 10, 10}, "0 10 4"},
        {{-7}, "0 -7 1"},
        {{}, "-1 -7 0"},
        {three, "0 0 10002"},
        {more, "0 0 10000"}};
    for (auto [values, want] : kRows)
        EXPECT_EQ(filter(values), want);
    int64_t mean = 0;
    uint64_t count = 1;
    EXPECT_EQ(zorv_remove_outliers(nullptr, &mean, &count), -1);
    EXPECT_EQ(zorv_remove_outliers(&mean, nullptr, &count), -1);
    EXPECT_EQ(zorv_remove_outliers(&mean, &mean, nullptr), -1);
}

TEST_F(Avg, TheFilterEqualsItsDefinitionAtEveryScale)
{
    std::mt19937_64 random(1); // NOLINT(cert-msc32-c,cert-msc51-cpp): a failure is to come again
    for (int bits = 1; bits <= 64; ++bits) {
        for (const size_t n : {2U, 255U, 256U, 257U, 3000U}) {
            SCOPED_TRACE(testing::Message() << n << " values of " << bits << " bits");
            Values values(n);
            for (int64_t &value : values)
                value = static_cast<int64_t>(random()) >> (64 - bits);
            expect_same_as_plainly(values);
            for (size_t i = 0; i < n; i += 1 + random() % 100) // some far from the others
                values[i] = static_cast<int64_t>(random()) >> random() % 64;
            expect_same_as_plainly(values);
        }
    }
    // Sums of squares beyond 53 bits round step by step; odd squares make each a tie.
    for (const int64_t base : Values{1000000, 94906265, 134217727, 134217728, 3037000499}) {
        Values values(4000);
        for (int64_t &value : values)
            value = (random() & 1 ? base : -base) + static_cast<int64_t>(random() % 64);
        expect_same_as_plainly(values);
    }
    Values extremes;
    for (int i = 0; i < 300; ++i)
        extremes.insert(extremes.end(), {kMost, kLeast, 0, kLeast / 100, kMost / 100 + 1});
    expect_same_as_plainly(extremes);
}

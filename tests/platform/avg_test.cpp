#include <zorv/avg.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "support/device.h"

using Avg = Device;

namespace {

using Values = std::vector<int64_t>;

constexpr int64_t kLeast = INT64_MIN;
constexpr int64_t kMost = INT64_MAX;

int64_t truncate(double number)
{
    return number < 0x1p63 ? static_cast<int64_t>(number) : kMost;
}

// The filter as it is defined: one value after the other, nothing taken together.
int remove_outliers_plainly(int64_t *values, int64_t *mean, uint64_t *count)
{
    const uint64_t n = *count;
    if (n == 0)
        return -1;
    *mean = zorv_avg_array(values, n);
    const auto distance = [&](int64_t value) {
        return static_cast<int64_t>(static_cast<uint64_t>(value) - static_cast<uint64_t>(*mean));
    };
    int64_t sum = 0;
    for (uint64_t i = 0; i < n; ++i) {
        const auto d = static_cast<double>(distance(values[i]));
        sum = truncate(std::fma(d, d, static_cast<double>(sum)));
    }
    const uint64_t variance = static_cast<uint64_t>(sum) / n;
    const auto deviation = static_cast<int64_t>(std::sqrt(static_cast<double>(variance)));
    if (deviation == 0)
        return 0;
    *count = 0;
    for (uint64_t i = 0; i < n; ++i) {
        const auto product = static_cast<uint64_t>(distance(values[i])) * 100;
        const int64_t z = static_cast<int64_t>(product) / deviation;
        if (-300 <= z && z <= 300)
            values[(*count)++] = values[i];
    }
    return 0;
}

void expect_same_as_plainly(const Values &values)
{
    Values fast = values, plain = values;
    int64_t fast_mean = 0, plain_mean = 0;
    uint64_t fast_count = values.size(), plain_count = values.size();
    EXPECT_EQ(zorv_remove_outliers(fast.data(), &fast_mean, &fast_count), 0);
    remove_outliers_plainly(plain.data(), &plain_mean, &plain_count);
    EXPECT_EQ(fast_mean, plain_mean);
    EXPECT_EQ(fast_count, plain_count);
    EXPECT_EQ(fast, plain); // behind the kept values, too
}

} // namespace

TEST_F(Avg, QuotientsRoundHalfAwayFromZero)
{
    const struct {
        int64_t sum, n, expected;
    } kCases[] = {
        {5, 2, 3},
        {-5, 2, -3},
        {-4, 3, -1},
        {7, -1, -7},
        {7, -2, -3}, // half of -2 is added, towards zero
        {9, 0, 0},
        {kLeast, -1, kLeast},   // wraps
        {kMost, 2, kLeast / 2}, // the half wraps the sum
        {kMost, kMost, 0},
        {kLeast, kLeast, 0},
    };
    for (const auto &c : kCases) {
        SCOPED_TRACE(testing::Message() << c.sum << " / " << c.n);
        EXPECT_EQ(zorv_avg_round(c.sum, c.n), c.expected);
    }
}

TEST_F(Avg, ArraysOfAnyLengthHaveTheirMean)
{
    Values values;
    int64_t sum = 0;
    for (int64_t n = 1; n < 40; ++n) {
        values.push_back(n * n);
        sum += n * n;
        EXPECT_EQ(zorv_avg_array(values.data(), values.size()), zorv_avg_round(sum, n)) << n;
    }
    const Values wraps = {kMost, 1, 0, 0, 2};
    EXPECT_EQ(zorv_avg_array(wraps.data(), 5), (kLeast + 2 - 2) / 5);
    EXPECT_EQ(zorv_avg_array(values.data(), 0), 0);
    EXPECT_EQ(zorv_avg_array(nullptr, 3), 0);
}

TEST_F(Avg, AnAccumulatorWeighsItsSamples)
{
    zorv_avg acc = {};
    EXPECT_EQ(zorv_avg_compute(&acc, 4000000000u), 4000000000);
    zorv_avg_increment_sum_weighted(&acc, 10, 3);
    zorv_avg_increment_sum_weighted(&acc, -1, 99); // no sample
    zorv_avg_increment_sum_weighted(&acc, -20, 1);
    EXPECT_EQ(acc.sum, 10);
    EXPECT_EQ(acc.count, 4);
    EXPECT_EQ(acc.average, 4000000000);
    EXPECT_EQ(zorv_avg_compute(&acc, 7), 3);
    EXPECT_EQ(acc.average, 3);

    const int64_t pair[2] = {kMost, -5};
    zorv_avg_increment(&acc, pair);
    EXPECT_EQ(acc.sum, kLeast + 9);
    EXPECT_EQ(zorv_avg_compute(&acc, 7), 7); // the weight is below zero

    acc = {};
    zorv_avg_increment_sum_weighted(&acc, 0x10000, 0x8000); // 2^31 in 32 bits
    EXPECT_EQ(acc.sum, INT32_MIN);
    EXPECT_EQ(acc.count, 0x8000);
}

TEST_F(Avg, OutliersGoAndTheMeanStaysThatOfAll)
{
    Values values(10, 10);
    values.insert(values.begin() + 4, 1000); // the deviation is 284, z is 316
    int64_t mean = 0;
    uint64_t count = values.size();
    EXPECT_EQ(zorv_remove_outliers(values.data(), &mean, &count), 0);
    EXPECT_EQ(mean, 100);
    EXPECT_EQ(count, 10u);
    EXPECT_EQ(values, Values(11, 10));

    int64_t same[] = {10, 10, 10, 10};
    count = 4;
    EXPECT_EQ(zorv_remove_outliers(same, &mean, &count), 0);
    EXPECT_EQ(count, 4u);
    EXPECT_EQ(mean, 10);

    count = 1;
    int64_t one[] = {-7};
    EXPECT_EQ(zorv_remove_outliers(one, &mean, &count), 0);
    EXPECT_EQ(mean, -7);
    EXPECT_EQ(count, 1u);

    count = 0;
    EXPECT_EQ(zorv_remove_outliers(one, &mean, &count), -1);
    EXPECT_EQ(mean, -7);
    EXPECT_EQ(zorv_remove_outliers(nullptr, &mean, &count), -1);
}

TEST_F(Avg, ThreeDeviationsAreStillWithin)
{
    const auto kept = [](int64_t d) {
        Values values;
        for (int i = 0; i < 5000; ++i)
            values.insert(values.end(), {100, -100});
        values.insert(values.end(), {d, -d});
        int64_t mean = 1;
        uint64_t count = values.size();
        zorv_remove_outliers(values.data(), &mean, &count);
        EXPECT_EQ(mean, 0);
        return count - 10000;
    };
    EXPECT_EQ(kept(300), 2u); // the deviation is 100
    EXPECT_EQ(kept(301), 0u); // z of 301
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
}

TEST_F(Avg, SumsOfSquaresBeyond53BitsRoundStepByStep)
{
    std::mt19937_64 random(2); // NOLINT(cert-msc32-c,cert-msc51-cpp): a failure is to come again
    for (const int64_t base : {INT64_C(1000000), INT64_C(94906265), INT64_C(134217727),
                               INT64_C(134217728), INT64_C(3037000499)}) {
        SCOPED_TRACE(base);
        Values values; // odd squares, so that each sum above 2^53 is a tie
        for (int i = 0; i < 4000; ++i)
            values.push_back((random() & 1 ? base : -base) + static_cast<int64_t>(random() % 64));
        expect_same_as_plainly(values);
    }
    Values extremes;
    for (int i = 0; i < 300; ++i)
        extremes.insert(extremes.end(), {kMost, kLeast, 0, kLeast / 100, kMost / 100 + 1});
    expect_same_as_plainly(extremes);
}

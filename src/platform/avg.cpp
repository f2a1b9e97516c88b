#include <zorv/avg.h>

#include <algorithm>
#include <cmath>

#include "core/wrapping.h"

using namespace zorv;

namespace {

static_assert(sizeof(zorv_avg) == 24);

constexpr int64_t wrapping_difference(int64_t a, int64_t b)
{
    return static_cast<int64_t>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}

// Order does not matter to a wrapping sum, so four run side by side.
int64_t sum_of(const int64_t *values, uint64_t n)
{
    uint64_t sums[4] = {};
    uint64_t i = 0;
    for (; i + 4 <= n; i += 4)
        for (uint64_t lane = 0; lane < 4; ++lane)
            sums[lane] += static_cast<uint64_t>(values[i + lane]);
    for (; i < n; ++i)
        sums[0] += static_cast<uint64_t>(values[i]);
    return static_cast<int64_t>(sums[0] + sums[1] + sums[2] + sums[3]);
}

constexpr uint64_t kBlock = 256;
constexpr int kNearBits = 27;     // 2^8 squares below 2^54 add up to less than 2^62
constexpr double kExact = 0x1p53; // below, every integer is a double
constexpr double kBeyondInt64 = 0x1p63;

struct Squares {
    uint64_t sum;
    bool exact; // every distance has kNearBits at most; sum means nothing otherwise
};

Squares squares_of(const int64_t *values, uint64_t n, int64_t mean)
{
    uint64_t sum = 0;
    uint64_t bits = 0;
    for (uint64_t i = 0; i < n; ++i) {
        const auto distance = static_cast<uint64_t>(wrapping_difference(values[i], mean));
        sum += distance * distance; // the same for a distance below zero
        bits |= distance + (UINT64_C(1) << kNearBits);
    }
    return {sum, bits >> (kNearBits + 1) == 0};
}

// The sum of squared distances as it would be if each step d * d + s were rounded once to double
// precision, truncated to an integer and held at the largest one. No step needs truncating, because
// integers round to integers. None is rounded while the sum is below 2^53, where whole blocks are
// therefore summed as integers, in any order; from the first block beyond it goes step by step.
uint64_t sum_of_squares(const int64_t *values, uint64_t n, int64_t mean)
{
    double sum = 0;
    uint64_t i = 0;
    for (uint64_t length; i < n; i += length) {
        length = std::min(kBlock, n - i);
        const Squares block = squares_of(values + i, length, mean);
        const double next = sum + static_cast<double>(block.sum);
        if (!block.exact || next >= kExact)
            break;
        sum = next;
    }
    for (; i < n; ++i) {
        const auto distance = static_cast<double>(wrapping_difference(values[i], mean));
        sum = std::fma(distance, distance, sum);
    }
    return sum < kBeyondInt64 ? static_cast<uint64_t>(sum) : INT64_MAX;
}

// The values that are kept: those whose distance from the mean, times 100 and divided by the
// deviation, truncates to 300 at most. That is a distance of limit_ at most, without a division,
// but for distances whose product with 100 wraps.
class Band {
public:
    Band(int64_t mean, int64_t deviation)
        : mean_(mean), deviation_(deviation),
          limit_(static_cast<uint64_t>((301 * deviation - 1) / 100))
    {
    }

    bool holds(int64_t value) const
    {
        const auto distance = static_cast<uint64_t>(wrapping_difference(value, mean_));
        if (distance + limit_ > 2 * limit_) [[unlikely]] // not from -limit to limit
            return holds_far(distance);
        return true;
    }

private:
    [[gnu::noinline]] bool holds_far(uint64_t distance) const
    {
        const int64_t z = static_cast<int64_t>(distance * 100) / deviation_;
        return -300 <= z && z <= 300;
    }

    int64_t mean_;
    int64_t deviation_;
    uint64_t limit_;
};

// Moves the values that the band holds to the front; returns how many there are.
uint64_t keep(int64_t *values, uint64_t n, Band band)
{
    uint64_t kept = 0;
    for (uint64_t i = 0; i < n; ++i)
        if (band.holds(values[i]))
            values[kept++] = values[i];
    return kept;
}

} // namespace

int64_t zorv_avg_round(int64_t sum, int64_t n)
{
    if (n == 0)
        return 0;
    const int64_t half = n / 2;
    const int64_t adjusted = sum >= 0 ? wrapping_sum(sum, half) : wrapping_difference(sum, half);
    return n == -1 ? wrapping_difference(0, adjusted) : adjusted / n;
}

int64_t zorv_avg_array(const int64_t *values, uint64_t n)
{
    return values ? zorv_avg_round(sum_of(values, n), static_cast<int64_t>(n)) : 0;
}

void zorv_avg_increment(zorv_avg *acc, const int64_t pair[2])
{
    if (!acc || !pair)
        return;
    acc->sum = wrapping_sum(acc->sum, pair[0]);
    acc->count = wrapping_sum(acc->count, pair[1]);
}

void zorv_avg_increment_sum_weighted(zorv_avg *acc, int value, int weight)
{
    if (!acc || value == -1)
        return;
    // On purpose 32 bits; kept for callers built against it.
    const auto product =
        static_cast<int32_t>(static_cast<uint32_t>(value) * static_cast<uint32_t>(weight));
    acc->sum = wrapping_sum(acc->sum, int64_t{product});
    acc->count = wrapping_sum(acc->count, int64_t{weight});
}

int64_t zorv_avg_compute(zorv_avg *acc, unsigned dflt)
{
    if (!acc)
        return dflt;
    acc->average = acc->count > 0 ? zorv_avg_round(acc->sum, acc->count) : int64_t{dflt};
    return acc->average;
}

int zorv_remove_outliers(int64_t *values, int64_t *mean, uint64_t *count)
{
    if (!values || !mean || !count || *count == 0)
        return -1;
    const uint64_t n = *count;
    *mean = zorv_avg_array(values, n);
    const uint64_t variance = sum_of_squares(values, n, *mean) / n;
    const auto deviation = static_cast<int64_t>(std::sqrt(static_cast<double>(variance)));
    if (deviation != 0)
        *count = keep(values, n, Band(*mean, deviation));
    return 0;
}

/*
 * avg.h - integer means of periodic measurements, and a filter for outliers.
 *
 * Numbers are 64-bit signed integers; sums that grow past them wrap around. Quotients are rounded
 * half away from zero. Nothing is allocated, logged or kept. Any thread may call any function.
 */
#ifndef ZORV_AVG_H
#define ZORV_AVG_H

#include <stdint.h>

#include <zorv/api.h>

ZORV_BEGIN

/* A running average; zeroed by the caller to start. */
typedef struct zorv_avg {
    int64_t sum;     /* of the weighted samples */
    int64_t count;   /* total weight */
    int64_t average; /* the last mean computed */
} zorv_avg;

/*
 * Divides and rounds: half of n, truncated, is moved away from zero onto sum (added where sum is
 * zero or positive, subtracted where it is negative), and the result divided, truncating.
 *
 * Returns 0 for n of 0. Wraps for the most negative sum by -1.
 */
int64_t zorv_avg_round(int64_t sum, int64_t n);

/* Returns the rounded mean of n values; 0 for none and for NULL. */
int64_t zorv_avg_array(const int64_t *values, uint64_t n);

/* Adds another accumulator's partial result, as a pair of sum and count. NULL changes nothing. */
void zorv_avg_increment(zorv_avg *acc, const int64_t pair[2]);

/*
 * Adds a sample with a weight. A value of -1 is no sample and changes nothing. The product is
 * formed in 32 bits and wraps there, on purpose: the counters that feed this wrap likewise.
 */
void zorv_avg_increment_sum_weighted(zorv_avg *acc, int value, int weight);

/* Sets and returns acc->average: the rounded mean, or dflt while count is not above 0. */
int64_t zorv_avg_compute(zorv_avg *acc, unsigned dflt);

/*
 * Drops the values that lie further than three standard deviations from the mean, in place; the
 * others keep their order and move down.
 *
 *   values  [in,out] the kept values come first; what stands behind them is as it was
 *   mean    [out] the mean of all values as given, on purpose not of those that are kept
 *   count   [in,out] number of values, then of kept ones
 *
 * The deviation is an integer, and a value is dropped when 100 times its distance from the mean,
 * divided by the deviation and truncated, is beyond 300. With a deviation of 0 every value is kept.
 * Sums of squares follow double precision step by step: exact below 2^53, rounded at each value
 * above, held at the largest 64-bit integer beyond.
 *
 * Returns 0, or -1 with nothing changed when there is no value or a pointer is NULL.
 */
int zorv_remove_outliers(int64_t *values, int64_t *mean, uint64_t *count);

ZORV_END

#endif

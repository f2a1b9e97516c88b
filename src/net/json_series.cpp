#include <zorv/json.h>

#include <cstdio>

#include <jansson.h>

#include "core/log_gate.h"
#include "core/own.h"
#include "core/wrapping.h"

using namespace zorv;

constinit timespec vq_now = {}; // set by zorv_grab_ts(), zorv_set_ts(), or the program itself

namespace {

constexpr char kModule[] = "libzorv_util";
constexpr size_t kKey = 40; // leaves a base key 31 characters
constexpr long kInterval = 10;
constexpr int kTooSoon = -2;
constexpr size_t kThinAbove = 359; // elements

// The members of a series.
struct Keys {
    char array[kKey];
    char time[kKey];
    char interval[kKey];
};

bool make_key(char (&name)[kKey], const char *key, const char *member)
{
    const int length = snprintf(name, sizeof name, "%s%s", key, member);
    return length >= 0 && static_cast<size_t>(length) < sizeof name;
}

bool make_keys(Keys &keys, const char *key)
{
    return make_key(keys.array, key, "Array") && make_key(keys.time, key, "Time") &&
           make_key(keys.interval, key, "Interval");
}

void set_integer(json_t *obj, const char *key, int64_t value)
{
    json_object_set_new(obj, key, json_integer(value));
}

// Whether fewer seconds than the interval lie between two times, however far apart those are.
bool is_too_soon(long now, long last, long interval)
{
    long elapsed;
    if (__builtin_sub_overflow(now, last, &elapsed))
        return last > 0;
    return elapsed < interval;
}

// Keeps the elements at even positions, each moved once.
void thin(json_t *array)
{
    const size_t kept = (json_array_size(array) + 1) / 2;
    for (size_t i = 1; i < kept; ++i)
        json_array_set(array, i, json_array_get(array, 2 * i));
    while (json_array_size(array) > kept)
        json_array_remove(array, json_array_size(array) - 1);
}

} // namespace

int zorv_json_maybe_append_array(json_t *obj, const char *key, long value)
{
    if (!key) // "%s" would make a name of it
        return -1;
    Keys keys;
    if (!make_keys(keys, key)) {
        log_error("key too long: %s\n", key);
        return -1;
    }
    json_t *const array = json_object_get(obj, keys.array);
    if (!array) {
        Json series(json_pack("[I]", json_int_t{value}));
        if (!series) {
            log_error("Failed to allocate json array");
            return -1;
        }
        set_integer(obj, keys.time, vq_now.tv_sec);
        return json_object_set_new(obj, keys.array, series.release());
    }

    const long last = zorv_json_read_long(obj, keys.time, 0);
    const long interval = zorv_json_read_long(obj, keys.interval, kInterval);
    if (last != 0 && is_too_soon(vq_now.tv_sec, last, interval))
        return kTooSoon;
    if (json_array_size(array) > kThinAbove) {
        thin(array);
        set_integer(obj, keys.interval, wrapping_sum(interval, interval));
    }
    set_integer(obj, keys.time, vq_now.tv_sec);
    return json_array_append_new(array, json_integer(value));
}

long zorv_grab_ts(void)
{
    clock_gettime(CLOCK_MONOTONIC, &vq_now);
    return vq_now.tv_sec;
}

void zorv_set_ts(long seconds)
{
    vq_now.tv_sec = seconds;
}

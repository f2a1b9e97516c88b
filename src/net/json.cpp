#include <zorv/json.h>

#include <cstdio>

#include <jansson.h>

#include "core/log_gate.h"
#include "core/own.h"
#include "core/wrapping.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "libzorv_util";

int64_t read_integer(json_t *obj, const char *key, int64_t fallback)
{
    const json_t *const member = json_object_get(obj, key);
    return json_is_integer(member) ? json_integer_value(member) : fallback;
}

int add(json_t *obj, const char *key, int64_t delta)
{
    return json_object_set_new(obj, key,
                               json_integer(wrapping_sum(read_integer(obj, key, 0), delta)));
}

// The integers of an array into `values`, which has room for all elements. Returns their number.
size_t copy_integers(const json_t *array, long *values)
{
    size_t count = 0;
    for (size_t i = 0; i < json_array_size(array); ++i) {
        const json_t *const element = json_array_get(array, i);
        if (json_is_integer(element))
            values[count++] = static_cast<long>(json_integer_value(element));
    }
    return count;
}

} // namespace

const char *zorv_json_get_str(json_t *obj, const char *key, const char *fallback)
{
    const json_t *const member = json_object_get(obj, key);
    return json_is_string(member) ? json_string_value(member) : fallback;
}

int zorv_json_get_bool(json_t *obj, const char *key, int fallback)
{
    const json_t *const member = json_object_get(obj, key);
    if (json_is_boolean(member))
        return json_is_true(member);
    return json_is_integer(member) ? json_integer_value(member) != 0 : fallback;
}

long zorv_json_read_long(json_t *obj, const char *key, long fallback)
{
    return static_cast<long>(read_integer(obj, key, fallback));
}

int64_t zorv_json_read_i64(json_t *obj, const char *key, int64_t fallback)
{
    return read_integer(obj, key, fallback);
}

int zorv_json_read_array(json_t *obj, const char *key, long **out, size_t *count)
{
    const json_t *const array = json_object_get(obj, key);
    const size_t size = json_array_size(array); // 0 for what is no array
    if (size == 0)
        return -1;
    using Integers = std::unique_ptr<long, Closer<free>>;
    Integers integers(static_cast<long *>(calloc(size, sizeof(long))));
    if (!integers) {
        log_error("Failed to allocate memory");
        return -1;
    }
    *count = copy_integers(array, integers.get());
    if (*count == 0)
        return -1;
    *out = integers.release();
    return 0;
}

int zorv_json_integer_value_from_obj(json_t *obj, const char *obj_name, const char *key,
                                     int allow_integer, int *value)
{
    if (!value) {
        log_error("NULL pointer provided for value, obj_name %s, key %s", obj_name, key);
        return 0;
    }
    const json_t *const member = json_object_get(obj, key);
    if (!member) {
        log_debug("no obj for obj_name %s, key %s", obj_name, key);
    } else if (json_is_string(member)) {
        const char *const text = json_string_value(member);
        if (text && sscanf(text, "%i", value) == 1)
            return 1;
        if (text)
            log_debug("invalid integer '%s' in object %s, key %s", text, obj_name, key);
        else
            log_debug("no string for obj_name %s, key %s", obj_name, key);
    } else if (!json_is_integer(member)) {
        log_debug("JSON object is of type %d, not a string or integer, obj_name %s, key %s",
                  static_cast<int>(json_typeof(member)), obj_name, key);
    } else if (!allow_integer) {
        log_debug("JSON object as integer is not acceptable, obj_name %s, key %s", obj_name, key);
    } else {
        *value = static_cast<int>(json_integer_value(member));
        return 2;
    }
    return 0;
}

int zorv_json_add_long(json_t *obj, const char *key, long delta)
{
    return add(obj, key, delta);
}

int zorv_json_add_i64(json_t *obj, const char *key, int64_t delta)
{
    return add(obj, key, delta);
}

int zorv_json_append_array(json_t *obj, const char *key, long value)
{
    if (json_t *const array = json_object_get(obj, key)) {
        json_array_append_new(array, json_integer(value)); // On purpose: no array is no failure.
        return 0;
    }
    Json array(json_pack("[I]", json_int_t{value}));
    if (!array) {
        log_error("Failed to allocate json array");
        return -1;
    }
    return json_object_set_new(obj, key, array.release());
}

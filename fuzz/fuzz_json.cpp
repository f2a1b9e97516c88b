// The JSON helpers on whatever document a service or a damaged state file holds: readers against
// jansson's own types, updaters by what they leave behind.
#include <zorv/json.h>
#include <zorv/log.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include <jansson.h>

namespace {

using JsonPtr = std::unique_ptr<json_t, decltype(&json_decref)>;

void require(bool holds)
{
    if (!holds)
        abort();
}

void check_array(json_t *obj, const char *key)
{
    const json_t *const array = json_object_get(obj, key);
    size_t expected = 0;
    for (size_t i = 0; i < json_array_size(array); ++i)
        expected += json_is_integer(json_array_get(array, i)) ? 1 : 0;
    long *numbers = nullptr;
    size_t count = 0;
    const int rc = zorv_json_read_array(obj, key, &numbers, &count);
    require((rc == 0) == (expected > 0) && count == expected && (rc == 0) == (numbers != nullptr));
    free(numbers);
}

void check_readers(json_t *obj, const char *key)
{
    const json_t *const member = json_object_get(obj, key);
    const bool is_integer = json_is_integer(member);
    require((zorv_json_get_str(obj, key, nullptr) != nullptr) == json_is_string(member));
    require((zorv_json_get_bool(obj, key, -5) != -5) == (is_integer || json_is_boolean(member)));
    require(zorv_json_read_i64(obj, key, 7) == (is_integer ? json_integer_value(member) : 7));
    int value = 0;
    const int rc = zorv_json_integer_value_from_obj(obj, "obj", key, 1, &value);
    require((rc == 2) == is_integer && (rc != 1 || json_is_string(member)));
    check_array(obj, key);
}

// A series grows by one, or is halved and grows by one, or stays.
void check_series(json_t *obj, const std::string &array_key)
{
    const std::string key = array_key.substr(0, array_key.size() - strlen("Array"));
    const json_t *const array = json_object_get(obj, array_key.c_str());
    const bool is_array = json_is_array(array);
    const size_t before = json_array_size(array);
    const int rc = zorv_json_maybe_append_array(obj, key.c_str(), 1);
    require(rc == 0 || rc == -2 || !is_array || key.size() > 31);
    const size_t after = json_array_size(json_object_get(obj, array_key.c_str()));
    require(after == (rc != 0 ? before : before > 359 ? (before + 1) / 2 + 1 : before + 1));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    libzorv_log_level = 0;
    zorv_set_ts(size > 0 ? data[0] : 0);
    const JsonPtr obj(json_loadb(reinterpret_cast<const char *>(data), size, 0, nullptr),
                      json_decref);
    const JsonPtr original(json_deep_copy(obj.get()), json_decref);
    const char *key;
    json_t *member;
    json_object_foreach(original.get(), key, member) // the updaters change the other one
    {
        check_readers(obj.get(), key);
        const std::string name = key;
        if (name.size() >= strlen("Array") && name.ends_with("Array"))
            check_series(obj.get(), name);
        require(zorv_json_append_array(obj.get(), key, 2) == 0);
        const json_int_t value = zorv_json_read_i64(obj.get(), key, 0);
        require(zorv_json_add_i64(obj.get(), key, 1) == 0);
        require(json_integer_value(json_object_get(obj.get(), key)) ==
                static_cast<json_int_t>(static_cast<uint64_t>(value) + 1));
    }
    return 0;
}

// json.h - JSON that releases itself, from a text and as one.
#ifndef ZORV_TESTS_SUPPORT_JSON_H
#define ZORV_TESTS_SUPPORT_JSON_H

#include <jansson.h>

#include "support/device.h"

struct ReleaseJson {
    void operator()(json_t *json) const { json_decref(json); }
};
using Json = std::unique_ptr<json_t, ReleaseJson>; // one reference

// The one document of a text, of any type; empty when there is none, or more behind it.
inline Json loaded(const std::string &text)
{
    return Json(
        json_loadb(text.data(), text.size(), JSON_DECODE_ANY | JSON_REJECT_DUPLICATES, nullptr));
}

// Compact; "" for NULL.
inline std::string dumped(const json_t *json)
{
    const std::unique_ptr<char, decltype(&free)> text(
        json_dumps(json, JSON_COMPACT | JSON_ENCODE_ANY), free);
    return text ? text.get() : "";
}

// A member as compact JSON, "" when there is none.
inline std::string member(const std::string &text, const char *name)
{
    return dumped(json_object_get(loaded(text).get(), name));
}

#endif

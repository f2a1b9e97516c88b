#include "base/value.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <new>

namespace ctl {
namespace {

constexpr int kFewest = 15,
              kMost = 17; // digits of a real: those it is sure to keep, all it may need

// As few digits as tell every real in a value from its neighbours.
int digits_of(const json_t *json) // NOLINT(misc-no-recursion): jansson takes no deep values
{
    int digits = kFewest;
    size_t index;
    const char *name;
    json_t *item;
    json_array_foreach(json, index, item) digits = std::max(digits, digits_of(item));
    json_object_foreach(const_cast<json_t *>(json), name, item) digits =
        std::max(digits, digits_of(item));
    char text[32];
    const double number = json_real_value(json);
    for (; json_is_real(json) && digits < kMost; digits++) {
        snprintf(text, sizeof text, "%.*g", digits, number);
        if (strtod(text, nullptr) == number)
            break;
    }
    return digits;
}

// A document in the making. jansson looks away when the name of a member could not be written.
struct Dump {
    std::string text;
    bool is_short = false;
};

int write_piece(const char *bytes, size_t size, void *data) noexcept
{
    auto *const dump = static_cast<Dump *>(data);
    try {
        dump->text.append(bytes, size);
        return 0;
    } catch (const std::bad_alloc &) {
        dump->is_short = true;
        return -1;
    }
}

} // namespace

size_t utf8_length(std::string_view text)
{
    const auto byte = [&](size_t at) -> unsigned {
        return at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
    };
    const unsigned lead = byte(0);
    if (lead < 0x80)
        return 1;
    if (lead < 0xc2 || lead > 0xf4)
        return 0;
    // The second byte's range keeps out overlong forms, surrogates and what lies past U+10FFFF.
    unsigned low = lead == 0xe0 ? 0xa0 : lead == 0xf0 ? 0x90 : 0x80;
    unsigned high = lead == 0xed ? 0x9f : lead == 0xf4 ? 0x8f : 0xbf;
    const size_t length = lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
    for (size_t at = 1; at < length; at++) {
        if (byte(at) < low || byte(at) > high)
            return 0;
        low = 0x80;
        high = 0xbf;
    }
    return length;
}

std::string clean_utf8(std::string_view text, bool &damaged)
{
    std::string clean;
    clean.reserve(text.size());
    while (!text.empty()) {
        const size_t length = utf8_length(text);
        if (length == 0) {
            clean += "\xef\xbf\xbd";
            damaged = true;
        } else {
            clean += text.substr(0, length);
        }
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return clean;
}

Value::Value(std::string_view text) : Value()
{
    bool damaged = false;
    const std::string clean = clean_utf8(text, damaged);
    *this = take(json_stringn(clean.data(), clean.size()));
    damaged_ = damaged;
}

// JSON has no infinities: those are null.
Value::Value(double number) : Value()
{
    if (std::isfinite(number))
        *this = take(json_real(number));
}

Value Value::take(json_t *json)
{
    if (!json)
        throw std::bad_alloc();
    return {json, false};
}

Value &Value::set(std::string_view name, const Value &value)
{
    bool damaged = value.damaged_;
    const std::string clean = clean_utf8(name, damaged);
    if (json_object_set(json_, clean.c_str(), value.json_) != 0 ||
        (damaged && json_object_set(json_, "invalid_utf8", json_true()) != 0))
        throw std::bad_alloc();
    return *this;
}

Value &Value::add(const Value &value)
{
    if (json_array_append(json_, value.json_) != 0)
        throw std::bad_alloc();
    damaged_ = damaged_ || value.damaged_;
    return *this;
}

std::string Value::dump() const
{
    Dump dump;
    const auto precision = static_cast<size_t>(digits_of(json_));
    if (json_dump_callback(json_, write_piece, &dump,
                           JSON_COMPACT | JSON_ENCODE_ANY | JSON_REAL_PRECISION(precision)) != 0 ||
        dump.is_short)
        throw std::bad_alloc();
    return dump.text;
}

} // namespace ctl

#include "base/value.h"

#include <cmath>
#include <cstdlib>
#include <memory>
#include <new>

namespace ctl {

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
    const std::unique_ptr<char, decltype(&free)> text(
        json_dumps(json_, JSON_COMPACT | JSON_ENCODE_ANY | JSON_REAL_PRECISION(15)), free);
    if (!text)
        throw std::bad_alloc();
    return text.get();
}

} // namespace ctl

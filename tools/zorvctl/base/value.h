// value.h - JSON values as the verbs build them: shared handles on jansson's.
#ifndef ZORVCTL_VALUE_H
#define ZORVCTL_VALUE_H

#include <concepts>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <utility>

#include <jansson.h>

namespace ctl {

// A handle on one JSON value; copies share it. Texts may hold any bytes: what is not UTF-8 becomes
// U+FFFD, and the object that holds such a text (itself or in a list) gets "invalid_utf8": true.
class Value {
public:
    Value() : Value(json_null(), false) {}
    explicit Value(std::string_view text);
    explicit Value(const std::string &text) : Value(std::string_view(text)) {}
    explicit Value(const char *text) : Value() // NULL is JSON's null
    {
        if (text)
            *this = Value(std::string_view(text));
    }
    explicit Value(bool truth) : Value(json_boolean(truth), false) {}
    explicit Value(double number);
    template <std::integral T>
    explicit Value(T number) : Value()
    {
        constexpr auto kMost = std::numeric_limits<json_int_t>::max();
        if (std::cmp_less_equal(number, kMost))
            *this = take(json_integer(static_cast<json_int_t>(number)));
        else
            *this = Value(static_cast<double>(number));
    }

    Value(const Value &other) : Value(json_incref(other.json_), other.damaged_) {}
    Value(Value &&other) noexcept
        : json_(std::exchange(other.json_, json_null())), damaged_(other.damaged_)
    {
    }
    Value &operator=(Value other) noexcept
    {
        std::swap(json_, other.json_);
        std::swap(damaged_, other.damaged_);
        return *this;
    }
    ~Value() { json_decref(json_); }

    static Value object() { return take(json_object()); }
    static Value list() { return take(json_array()); }
    // Takes the caller's reference; NULL, jansson's word for no memory, throws std::bad_alloc.
    static Value take(json_t *json);

    // Sets a member of an object.
    Value &set(std::string_view name, const Value &value);
    template <class T>
    Value &set(std::string_view name, const T &value)
    {
        return set(name, Value(value));
    }

    // Appends to a list.
    Value &add(const Value &value);
    template <class T>
    Value &add(const T &value)
    {
        return add(Value(value));
    }

    size_t size() const
    {
        return json_is_array(json_) ? json_array_size(json_) : json_object_size(json_);
    }
    const json_t *get() const { return json_; }

    // The whole document as one line of UTF-8, without its newline.
    std::string dump() const;

private:
    Value(json_t *json, bool damaged) : json_(json), damaged_(damaged) {}

    json_t *json_;
    bool damaged_; // a text, or a list holding one, that lost bytes
};

// The length of the well-formed sequence that a text begins with; 0 when there is none.
size_t utf8_length(std::string_view text);

// Replaces every byte that is not part of well-formed UTF-8 by U+FFFD.
std::string clean_utf8(std::string_view text, bool &damaged);

} // namespace ctl

#endif

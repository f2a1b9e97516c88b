#include "telemetry/json_members.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/log_gate.h"
#include "core/own.h"

using namespace zorv;

namespace {

constexpr char kReplacement[] = "\xef\xbf\xbd"; // U+FFFD
constexpr size_t kReplacementLength = sizeof kReplacement - 1;

// How many bytes the character has that a text begins with; 0 when it begins with none. Overlong
// forms and surrogates are none, as jansson has it.
size_t character_length(std::string_view text)
{
    constexpr uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000}; // of that many bytes
    const auto first = static_cast<unsigned char>(text.front());
    if (first < 0x80)
        return 1;
    const size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    if (first < 0xc0 || first >= 0xf8 || text.size() < length)
        return 0;
    uint32_t code = first & (0x7fU >> length);
    for (size_t i = 1; i < length; ++i) {
        if ((text[i] & 0xc0) != 0x80)
            return 0;
        code = code << 6 | (static_cast<unsigned char>(text[i]) & 0x3fU);
    }
    const bool is_surrogate = code >= 0xd800 && code < 0xe000;
    return code >= kLeast[length] && code <= 0x10ffff && !is_surrogate ? length : 0;
}

// Copies a text in UTF-8, for which three times its size has room. Returns the bytes replaced.
size_t copy_utf8(std::string_view text, char *to, size_t &length)
{
    size_t replaced = 0;
    length = 0;
    while (!text.empty()) {
        const size_t taken = character_length(text);
        memcpy(to + length, taken ? text.data() : kReplacement, taken ? taken : kReplacementLength);
        length += taken ? taken : kReplacementLength;
        replaced += taken ? 0 : 1;
        text.remove_prefix(taken ? taken : 1);
    }
    return replaced;
}

} // namespace

json_t *zorv::text_to_json(std::string_view text, const LogName &log)
{
    if (json_t *const value = json_stringn(text.data(), text.size()))
        return value;
    const Text clean(static_cast<char *>(malloc(text.size() * kReplacementLength + 1)));
    if (!clean)
        return nullptr;
    size_t length;
    const size_t replaced = copy_utf8(text, clean.get(), length);
    if (replaced > 0)
        LOG_GATED(8, LOG_DEBUG, log.module, log.function,
                  "%zu bytes of a text are no UTF-8 and became U+FFFD", replaced);
    return json_stringn_nocheck(clean.get(), length);
}

void Members::set(const char *name, json_t *value)
{
    if (json_object_set_new_nocheck(object_, name, value) != 0)
        is_whole_ = false;
}

void Members::set_text(const char *name, std::string_view text)
{
    set(name, text_to_json(text, log_));
}

void Members::set_number_text(const char *name, int number)
{
    char text[sizeof "-2147483648"];
    snprintf(text, sizeof text, "%d", number);
    set_text(name, text);
}

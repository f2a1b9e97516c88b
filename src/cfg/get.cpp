#include <zorv/cfg.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "cfg/key_text.h"
#include "cfg/match.h"
#include "cfg/natural.h"
#include "cfg/words.h"
#include "core/log_gate.h"
#include "core/text_tools.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "cfg";
constexpr char kSpecial[] = "`\\\"$"; // what a shell still sees between double quotes
constexpr int kEscapedLine = 507;     // what the "malloc failed" line names

constexpr struct {
    char word[9];
    int state;
} kSwitchWords[] = {
    {"on", 1},  {"enabled", 1},  {"1", 1}, {"enable", 1},  {"active", 1},   {"true", 1},
    {"off", 0}, {"disabled", 0}, {"0", 0}, {"disable", 0}, {"inactive", 0}, {"false", 0},
};

// Returns the first entry of a key, or null.
ZORV_PRINTF(2, 0)
const cfg_entry *vget_value(const cfg_entry *cfg, const char *format, va_list arguments)
{
    const KeyText key(format, arguments);
    if (!key.get()) {
        log_error("OOM");
        return nullptr;
    }
    return find_entry(cfg, key.get());
}

// On purpose errno is not cleared, so an old ERANGE gives the fallback; kept for callers built
// against it.
template <class Number, class Wide>
Number number_of(const cfg_entry *entry, Number fallback,
                 Wide (*convert)(const char *, char **, int), int base)
{
    if (!entry)
        return fallback;
    char *end;
    const Wide number = convert(entry->value, &end, base);
    return errno == ERANGE || end == entry->value ? fallback : static_cast<Number>(number);
}

size_t count_special(const char *text)
{
    size_t count = 0;
    while (*(text += strcspn(text, kSpecial)) != '\0') {
        ++text;
        ++count;
    }
    return count;
}

void copy_escaped(char *to, const char *text)
{
    for (; *text != '\0'; ++text) {
        if (strchr(kSpecial, *text))
            *to++ = '\\';
        *to++ = *text;
    }
    *to = '\0';
}

bool equal_words(std::string_view left, std::string_view right)
{
    if (left.size() != right.size())
        return false;
    for (size_t i = 0; i < left.size(); ++i)
        if (lower(left[i]) != lower(right[i]))
            return false;
    return true;
}

} // namespace

int zorv::switch_of(std::string_view word)
{
    for (const auto &row : kSwitchWords)
        if (equal_words(word, row.word))
            return row.state;
    return -1;
}

const char *get_value(const cfg_entry *cfg, const char *fallback, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const cfg_entry *entry = vget_value(cfg, format, arguments);
    va_end(arguments);
    return entry ? entry->value : fallback;
}

const char *get_esc_value(cfg_entry *cfg, const char *fallback, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const cfg_entry *entry = vget_value(cfg, format, arguments);
    va_end(arguments);
    const char *escaped = esc_value(const_cast<cfg_entry *>(entry)); // one of cfg's own
    return escaped ? escaped : fallback;
}

const char *esc_value(cfg_entry *entry)
{
    if (!entry || entry->escaped)
        return entry ? entry->escaped : nullptr;
    const size_t special = count_special(entry->value);
    if (special == 0)
        return entry->escaped = entry->value;
    const size_t size = strlen(entry->value) + special + 1;
    const auto escaped = static_cast<char *>(malloc(size));
    if (!escaped) {
        log_error("%d: malloc(%zu) failed", kEscapedLine, size);
        return nullptr;
    }
    copy_escaped(escaped, entry->value);
    return entry->escaped = escaped;
}

int32_t get_int32(const cfg_entry *cfg, int32_t fallback, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const cfg_entry *entry = vget_value(cfg, format, arguments);
    va_end(arguments);
    return number_of(entry, fallback, strtol, 0);
}

uint32_t get_uint32(const cfg_entry *cfg, uint32_t fallback, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const cfg_entry *entry = vget_value(cfg, format, arguments);
    va_end(arguments);
    return number_of(entry, fallback, strtoul, 0);
}

int32_t get_int32_dec(const cfg_entry *cfg, int32_t fallback, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const cfg_entry *entry = vget_value(cfg, format, arguments);
    va_end(arguments);
    return number_of(entry, fallback, strtol, 10);
}

int64_t get_int64(const cfg_entry *cfg, int64_t fallback, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const cfg_entry *entry = vget_value(cfg, format, arguments);
    va_end(arguments);
    return number_of(entry, fallback, strtoll, 0);
}

int get_bool(const cfg_entry *cfg, int fallback, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const cfg_entry *entry = vget_value(cfg, format, arguments);
    va_end(arguments);
    const int state = entry ? switch_of(strip_blanks(entry->value)) : -1;
    return state < 0 ? fallback : state;
}

#include "cfg/match.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "cfg/key_text.h"
#include "cfg/natural.h"
#include "core/log_gate.h"
#include "core/text_tools.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "cfg";
constexpr int kRecordLine = 311; // what the "calloc failed" line names

bool has_prefix(const char *text, std::string_view prefix)
{
    return strncmp(text, prefix.data(), prefix.size()) == 0;
}

// Whether strtol() would take a first number from the text in base 0; errno stays out of it.
bool begins_with_number(const char *text)
{
    while (is_white(*text))
        ++text;
    if (*text == '+' || *text == '-')
        ++text;
    return is_digit(*text);
}

bool is_in_section(const char *key, std::string_view prefix, const char *postfix)
{
    if (!has_prefix(key, prefix))
        return false;
    const char *index = key + prefix.size();
    if (!begins_with_number(index))
        return false;
    const char *rest = strchr(index, '.');
    return rest && postfix ? equal_keys(rest, postfix) : !rest && !postfix;
}

// The last eight bytes of a key, where keys of one file differ most; 0 of a shorter one.
uint64_t ending(const char *key, size_t length)
{
    uint64_t bytes = 0;
    if (length >= sizeof bytes)
        memcpy(&bytes, key + length - sizeof bytes, sizeof bytes);
    return bytes;
}

} // namespace

const cfg_entry *zorv::find_entry(const cfg_entry *cfg, const char *key)
{
    constexpr uint64_t kCase = 0x2020202020202020; // what a letter's two forms differ in
    const size_t length = strlen(key);
    const uint64_t wanted = ending(key, length);
    for (; cfg; cfg = cfg->next) {
        if (cfg->next)
            __builtin_prefetch(cfg->next->key);
        if (strlen(cfg->key) == length && ((ending(cfg->key, length) ^ wanted) & ~kCase) == 0 &&
            equal_keys(cfg->key, key))
            return cfg;
    }
    return nullptr;
}

int zorv::process_cfg_it(MatchCallback callback, void *context, const cfg_entry *cfg, int exact,
                         const char *format, va_list arguments)
{
    const KeyText text(format, arguments);
    if (!text.get()) {
        log_error("OOM");
        return -1;
    }
    const std::string_view key(text.get());
    int rc = 0;
    for (; cfg && rc == 0; cfg = cfg->next)
        if (exact ? equal_keys(cfg->key, key.data()) : has_prefix(cfg->key, key))
            rc = callback(cfg, context);
    return rc;
}

int zorv::process_cfg_section(MatchCallback callback, void *context, const cfg_entry *cfg,
                              const char *postfix, const char *value, const char *prefix_format,
                              va_list arguments)
{
    if (postfix && *postfix != '.') {
        log_error("postfix must start with '.': '%s'", postfix);
        return -1;
    }
    const KeyText text(prefix_format, arguments);
    if (!text.get()) {
        log_error("OOM");
        return -1;
    }
    const std::string_view prefix(text.get());
    if (!prefix.ends_with('.'))
        log_warning("deprecated prefix doesn't end with '.': '%s' => '%s'", prefix_format,
                    prefix.data());
    int rc = 0;
    for (; cfg && rc == 0; cfg = cfg->next)
        if (is_in_section(cfg->key, prefix, postfix) && (!value || !strcmp(cfg->value, value)))
            rc = callback(cfg, context);
    return rc;
}

int zorv::collect_match(const cfg_entry *match, void *collector)
{
    return append_cfg_match_cb(match, static_cast<cfg_collector *>(collector));
}

cfg_entry *zorv::make_match(const cfg_entry *entry)
{
    const auto record = static_cast<cfg_entry *>(calloc(1, sizeof(cfg_entry)));
    if (record) {
        record->key = entry->key;
        record->value = entry->value;
    }
    return record;
}

void zorv::append_match(cfg_collector *list, cfg_entry *record)
{
    (list->tail ? list->tail->next : list->head) = record;
    list->tail = record;
}

cfg_entry *get_cfg_it(const cfg_entry *cfg, int exact, const char *format, ...)
{
    cfg_collector list = {};
    va_list arguments;
    va_start(arguments, format);
    process_cfg_it(collect_match, &list, cfg, exact, format, arguments);
    va_end(arguments);
    return list.head;
}

cfg_entry *cfg_it_append(cfg_entry *list, cfg_entry **other)
{
    if (!other || !*other)
        return list;
    cfg_entry **end = &list;
    while (*end)
        end = &(*end)->next;
    *end = std::exchange(*other, nullptr);
    return list;
}

void free_cfg_it(cfg_entry *list)
{
    while (list) {
        cfg_entry *record = std::exchange(list, list->next);
        if (record->escaped != record->value)
            free(record->escaped);
        free(record);
    }
}

int append_cfg_match_cb(const cfg_entry *matched, cfg_collector *ctx)
{
    if (ctx->head && !ctx->tail) {
        log_error("invalid ctx state");
        return -1;
    }
    cfg_entry *record = make_match(matched);
    if (!record) {
        log_error("%d: calloc(%zu, %zu) failed", kRecordLine, size_t{1}, sizeof(cfg_entry));
        return -1;
    }
    append_match(ctx, record);
    return 0;
}

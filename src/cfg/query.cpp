#include <zorv/cfg.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "cfg/index.h"
#include "cfg/match.h"
#include "cfg/natural.h"
#include "cfg/words.h"
#include "core/log_gate.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "cfg";

// What the "calloc failed" lines name.
constexpr int kChangedLine = 790;
constexpr int kRemovedLine = 812;

int count_match(const cfg_entry *, void *count)
{
    ++*static_cast<uint32_t *>(count);
    return 0;
}

int count_enabled(const cfg_entry *match, void *count)
{
    return switch_of(match->value) == 1 ? count_match(match, count) : 0;
}

// Merges two sorted lists; of equal keys those of the left one come first.
cfg_entry *merge(cfg_entry *left, cfg_entry *right)
{
    cfg_entry *list;
    cfg_entry **end = &list;
    while (left && right) {
        cfg_entry *&lesser = compare_keys(left->key, right->key) <= 0 ? left : right;
        *end = lesser;
        end = &lesser->next;
        lesser = lesser->next;
    }
    *end = left ? left : right;
    return list;
}

// Cuts off the records at the front that are in order already.
cfg_entry *take_run(cfg_entry *&list)
{
    cfg_entry *run = list, *last = list;
    while (last->next && compare_keys(last->key, last->next->key) <= 0)
        last = last->next;
    list = std::exchange(last->next, nullptr);
    return run;
}

// Sorts by key and keeps the order of equal ones. Bin i holds 2^i runs, merged, or none, from an
// earlier part of the list than all lower bins: adding a run is adding 1 to a binary number.
cfg_entry *sort(cfg_entry *list)
{
    cfg_entry *bins[64] = {};
    while (list) {
        cfg_entry *carry = take_run(list);
        cfg_entry **bin = bins;
        for (; *bin; ++bin)
            carry = merge(std::exchange(*bin, nullptr), carry);
        *bin = carry;
    }
    for (cfg_entry *bin : bins)
        list = merge(bin, list);
    return list;
}

bool is_comment(const char *key)
{
    const char *dot = strrchr(key, '.');
    return dot && strcmp(dot, ".comment") == 0;
}

// Lists a difference; one without memory is left out.
void append_difference(cfg_collector *list, const cfg_entry *entry, int line)
{
    if (cfg_entry *record = make_match(entry))
        append_match(list, record);
    else
        log_error_as("get_cfg_diff_it", "%d: calloc(%zu, %zu) failed", line, size_t{1},
                     sizeof(cfg_entry));
}

} // namespace

uint32_t get_cfg_count(const cfg_entry *cfg)
{
    uint32_t count = 0;
    for (; cfg; cfg = cfg->next)
        ++count;
    return count;
}

uint32_t get_cfg_key_count(const cfg_entry *cfg, int exact, const char *format, ...)
{
    uint32_t count = 0;
    va_list arguments;
    va_start(arguments, format);
    process_cfg_it(count_match, &count, cfg, exact, format, arguments);
    va_end(arguments);
    return count;
}

uint32_t get_cfg_section_count(const cfg_entry *cfg, const char *postfix, const char *value,
                               const char *prefix_format, ...)
{
    uint32_t count = 0;
    va_list arguments;
    va_start(arguments, prefix_format);
    process_cfg_section(count_match, &count, cfg, postfix, value, prefix_format, arguments);
    va_end(arguments);
    return count;
}

uint32_t get_cfg_section_enabled_count(const cfg_entry *cfg, const char *postfix,
                                       const char *prefix_format, ...)
{
    uint32_t count = 0;
    va_list arguments;
    va_start(arguments, prefix_format);
    process_cfg_section(count_enabled, &count, cfg, postfix, nullptr, prefix_format, arguments);
    va_end(arguments);
    return count;
}

cfg_entry *get_cfg_section(const cfg_entry *cfg, const char *postfix, const char *value,
                           const char *prefix_format, ...)
{
    cfg_collector list = {};
    va_list arguments;
    va_start(arguments, prefix_format);
    process_cfg_section(collect_match, &list, cfg, postfix, value, prefix_format, arguments);
    va_end(arguments);
    return sort(list.head);
}

int get_cfg_key_idx(const char *key, int n)
{
    int count = 0;
    for (const char *dot = strchr(key, '.'); dot; dot = strchr(dot + 1, '.')) {
        errno = 0;
        const int index = static_cast<int>(strtol(dot + 1, nullptr, 0));
        if (errno != 0 || index == 0) // On purpose 0 does not count: indexes begin at 1.
            continue;
        if (++count == n)
            return index;
    }
    return -1;
}

const char *get_key_element(const char *key, unsigned n)
{
    for (; key && n > 0; --n) {
        const char *dot = strchr(key, '.');
        key = dot ? dot + 1 : nullptr;
    }
    return key;
}

cfg_entry *get_cfg_diff_it(const cfg_entry *old_cfg, const cfg_entry *new_cfg)
{
    cfg_collector list = {};
    const KeyIndex old_keys(old_cfg), new_keys(new_cfg);
    // Two configurations mostly have their keys in the same order.
    const cfg_entry *guess = old_cfg;
    for (const cfg_entry *entry = new_cfg; entry; entry = entry->next) {
        if (is_comment(entry->key))
            continue;
        const cfg_entry *old = old_keys.find(entry->key, guess);
        if (!old || strcmp(old->value, entry->value) != 0)
            append_difference(&list, entry, kChangedLine);
        guess = old ? old->next : guess;
    }
    guess = new_cfg;
    for (const cfg_entry *entry = old_cfg; entry; entry = entry->next) {
        if (is_comment(entry->key))
            continue;
        const cfg_entry *found = new_keys.find(entry->key, guess);
        if (!found)
            append_difference(&list, entry, kRemovedLine);
        guess = found ? found->next : guess;
    }
    return list.head;
}

// match.h - an entry by its key, and the two matching engines: one key, the indexed keys of a
// section.
#ifndef ZORV_CFG_MATCH_H
#define ZORV_CFG_MATCH_H

#include <cstdarg>

#include <zorv/cfg.h>

namespace zorv {

// Returns the first entry whose key is equal in natural order, or null.
const cfg_entry *find_entry(const cfg_entry *cfg, const char *key);

// Is given each match in turn; anything but 0 stops the walk and becomes the engine's result.
using MatchCallback = int (*)(const cfg_entry *match, void *context);

// Walks the entries of a key: equal in natural order, or, unless exact, beginning with the text.
// Returns 0, the callback's result, or -1 when the key cannot be built.
int process_cfg_it(MatchCallback callback, void *context, const cfg_entry *cfg, int exact,
                   const char *format, va_list arguments) ZORV_PRINTF(5, 0);

// Walks the entries whose key is prefix, index, postfix, as get_cfg_section() in <zorv/cfg.h> says.
// Returns 0, the callback's result, or -1 when prefix or postfix will not do.
int process_cfg_section(MatchCallback callback, void *context, const cfg_entry *cfg,
                        const char *postfix, const char *value, const char *prefix_format,
                        va_list arguments) ZORV_PRINTF(6, 0);

// The callback that collects; its context is a cfg_collector.
[[gnu::visibility("hidden")]] int collect_match(const cfg_entry *match, void *collector);

// Makes a record of an entry's key and value; null without memory.
cfg_entry *make_match(const cfg_entry *entry);

void append_match(cfg_collector *list, cfg_entry *record);

} // namespace zorv

#endif

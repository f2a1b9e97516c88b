// Any text as a configuration: parsed, asked every kind of question, saved and parsed again.
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include <zorv/cfg.h>
#include <zorv/log.h>

#include "cfg/natural.h"
#include "core/own.h"

using namespace zorv;

namespace {

using Cfg = std::unique_ptr<cfg_entry, Closer<free_cfg>>;
using CfgIt = std::unique_ptr<cfg_entry, Closer<free_cfg_it>>;

// How often each question is asked of one text, which else would cost its length squared.
constexpr int kQuestions = 32;

void must(bool holds)
{
    if (!holds)
        abort();
}

Cfg parse_text(const char *data, size_t size)
{
    const File stream(size > 0 ? fmemopen(const_cast<char *>(data), size, "r") : nullptr);
    return Cfg(parse_stream(stream.get()));
}

// A lookup gives the first entry of the key, and the escaped value is the value when unescaped.
void ask(cfg_entry *cfg, const cfg_entry *entry)
{
    const char *key = entry->key;
    const char *value = get_value(cfg, nullptr, "%s", key);
    must(value != nullptr);
    const char *escaped = get_esc_value(cfg, nullptr, "%s", key);
    for (; *value != '\0'; ++value, ++escaped) {
        if (strchr("`\\\"$", *value))
            must(*escaped++ == '\\');
        must(*escaped == *value);
    }
    must(*escaped == '\0');
    get_int32(cfg, 1, "%s", key);
    get_uint32(cfg, 1, "%s", key);
    get_int32_dec(cfg, 1, "%s", key);
    get_int64(cfg, 1, "%s", key);
    const int state = get_bool(cfg, 2, "%s", key);
    must(state >= 0 && state <= 2);
    for (int n = -1; n < 4; ++n) {
        must(get_cfg_key_idx(key, n) != 0);
        get_key_element(key, static_cast<unsigned>(n + 1));
    }
    const CfgIt same(get_cfg_it(cfg, 1, "%s", key));
    must(get_cfg_count(same.get()) == get_cfg_key_count(cfg, 1, "%s", key));
    must(get_cfg_count(same.get()) > 0);
    must(get_cfg_key_count(cfg, 0, "%s", key) > 0);
}

// The section that a key may belong to: up to its first dot, and from its second.
void ask_section(cfg_entry *cfg, const cfg_entry *entry)
{
    const char *index = get_key_element(entry->key, 1);
    const char *postfix = index ? strchr(index, '.') : nullptr;
    const int prefix = index ? static_cast<int>(index - entry->key) : 0;
    const CfgIt list(get_cfg_section(cfg, postfix, nullptr, "%.*s", prefix, entry->key));
    must(get_cfg_count(list.get()) ==
         get_cfg_section_count(cfg, postfix, nullptr, "%.*s", prefix, entry->key));
    must(get_cfg_section_enabled_count(cfg, postfix, "%.*s", prefix, entry->key) <=
         get_cfg_count(list.get()));
    for (const cfg_entry *record = list.get(); record && record->next; record = record->next)
        must(compare_keys(record->key, record->next->key) <= 0);
    for (cfg_entry *record = list.get(); record; record = record->next)
        must(esc_value(record) != nullptr);
}

// Whether the line of this entry would be taken for a comment or an empty line.
bool hides(const cfg_entry *entry)
{
    return entry->key[0] == '#' || entry->key[0] == '\r';
}

// Saved and parsed again, a configuration is the same, less what hides. A misc mark among that
// would have later lines replace earlier ones.
void save_and_parse(const cfg_entry *cfg)
{
    static const std::string path = "/tmp/fuzz_cfg." + std::to_string(getpid());
    must(save_cfg(cfg, path.c_str()) == 0);
    const Cfg again(parse(path.c_str()));
    unlink(path.c_str());
    if (get_cfg_key_count(cfg, 0, "# misc") > 0)
        return;
    const cfg_entry *copy = again.get();
    for (; cfg; cfg = cfg->next) {
        if (hides(cfg))
            continue;
        must(copy && strcmp(copy->key, cfg->key) == 0 && strcmp(copy->value, cfg->value) == 0);
        copy = copy->next;
    }
    must(!copy);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    libzorv_log_level = 0;
    const auto text = reinterpret_cast<const char *>(data);
    const Cfg cfg = parse_text(text, size);
    const cfg_entry *entry = cfg.get();
    for (int n = 0; entry && n < kQuestions; ++n, entry = entry->next) {
        ask(cfg.get(), entry);
        ask_section(cfg.get(), entry);
    }
    const CfgIt all(get_cfg_it(cfg.get(), 0, "%s", ""));
    must(get_cfg_count(all.get()) == get_cfg_count(cfg.get()));
    const Cfg half = parse_text(text, size / 2);
    const CfgIt change(get_cfg_diff_it(half.get(), cfg.get()));
    must(get_cfg_count(change.get()) <= get_cfg_count(half.get()) + get_cfg_count(cfg.get()));
    save_and_parse(cfg.get());
    return 0;
}

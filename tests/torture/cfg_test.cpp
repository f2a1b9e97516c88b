// What comes of a configuration when memory or the kernel fails.

#include "support/torture.h"

const std::string kLongKey(200, 'k');
static cfg_entry *g_cfg;

static void prepare()
{
    Torture::file("/tmp/saved", "old");
    Torture::file("/tmp/system.cfg", "a.1=1\na.2=2\n# misc\nA.1=3\n" + kLongKey + "=$\n" +
                                         kLongKey + ".1=v\n" + std::string(5000, '\n') + "b=1\n");
    g_cfg = parse("/tmp/system.cfg");
}

// The records of a list, which is given back.
template <auto Free>
static std::string shown(cfg_entry *list)
{
    std::string text;
    for (const cfg_entry *entry = list; entry; entry = entry->next)
        text += std::string(entry->key, 1) + "=" + entry->value + " ";
    Free(list);
    return text;
}

static std::string save()
{
    const std::string rc = Torture::settled(std::to_string(save_cfg(g_cfg, "/tmp/saved")));
    return rc + " " + Torture::read("/tmp/saved");
}

TEST_F(Torture, Cfg)
{
    torture({
        {"parse",
         [] { return shown<free_cfg>(parse("/tmp/system.cfg")); },
         {"", "*: parse_stream: #: *alloc(*) failed",
          "*: parse_stream: Couldn't read all lines: *"},
         prepare},
        {"save_cfg", save, {"-1 old", "0 "}, prepare}, // on purpose writing is not looked at
        {"queries",
         [] {
             const char *const key = kLongKey.c_str();
             std::string text = get_esc_value(g_cfg, "no", "%s", key);
             text += std::to_string(get_cfg_section_count(g_cfg, nullptr, "v", "%s.", key));
             text += shown<free_cfg_it>(get_cfg_section(g_cfg, nullptr, nullptr, "a."));
             return text + shown<free_cfg_it>(get_cfg_diff_it(g_cfg, g_cfg->next->next));
         },
         {"no*: vget_value: OOM*", "no*: esc_value: #: malloc(#) failed*",
          "\\$0*: process_cfg_section: OOM*", "\\$1*: append_cfg_match_cb: #: calloc(*) failed*",
          "\\$1*: get_cfg_diff_it: #: calloc(*) failed"},
         prepare},
    });
}

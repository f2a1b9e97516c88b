// cfg_query.cpp - what a configuration holds: keys by prefix, sections, counts.
#include <new>
#include <optional>
#include <vector>

#include "cfg.h"

namespace ctl {
namespace {

struct ListArgs {
    std::string file, prefix;
    bool exact = false;
};

struct SectionArgs {
    std::string file, prefix;
    std::optional<std::string> postfix, value;
    bool enabled = false;
    bool exact = false, section = false; // of the verb count
};

void show_entries(const cfg_entry *entries, Reply &reply)
{
    Value list = Value::list();
    for (const cfg_entry *entry = entries; entry; entry = entry->next)
        list.add(Value::object().set("key", entry->key).set("value", entry->value));
    reply.table("entries", list, {"key", "value"});
}

// The library cuts a list of matches short where memory ends.
void check_count(const Matches &matches, uint32_t count)
{
    if (get_cfg_count(matches.get()) != count)
        throw std::bad_alloc();
}

void list(const ListArgs &args, Reply &reply)
{
    const Config cfg = load(args.file);
    const Matches matches(get_cfg_it(cfg.get(), args.exact, "%s", args.prefix.c_str()));
    check_count(matches, get_cfg_key_count(cfg.get(), args.exact, "%s", args.prefix.c_str()));
    show_entries(matches.get(), reply);
    if (!matches && !args.prefix.empty())
        reply.exit = Exit::no;
}

const char *text_or_null(const std::optional<std::string> &text)
{
    return text ? text->c_str() : nullptr;
}

void check_section(const SectionArgs &args)
{
    if (args.postfix && !args.postfix->starts_with('.'))
        throw Failure(Exit::usage, "--postfix: does not begin with \".\": " + *args.postfix);
}

// Keeps the entries that the library counts as enabled, asked one by one.
std::vector<cfg_entry> enabled_only(const cfg_entry *entries, const SectionArgs &args)
{
    std::vector<cfg_entry> kept;
    for (const cfg_entry *entry = entries; entry; entry = entry->next) {
        const cfg_entry alone = {entry->key, entry->value, nullptr, nullptr};
        if (get_cfg_section_enabled_count(&alone, text_or_null(args.postfix), "%s",
                                          args.prefix.c_str()) == 1)
            kept.push_back(alone);
    }
    for (size_t next = 1; next < kept.size(); next++)
        kept[next - 1].next = &kept[next];
    return kept;
}

void section(const SectionArgs &args, Reply &reply)
{
    check_section(args);
    const Config cfg = load(args.file);
    const Matches matches(get_cfg_section(cfg.get(), text_or_null(args.postfix),
                                          text_or_null(args.value), "%s", args.prefix.c_str()));
    check_count(matches,
                get_cfg_section_count(cfg.get(), text_or_null(args.postfix),
                                      text_or_null(args.value), "%s", args.prefix.c_str()));
    const std::vector<cfg_entry> enabled =
        enabled_only(args.enabled ? matches.get() : nullptr, args);
    const cfg_entry *shown = matches.get();
    if (args.enabled)
        shown = enabled.empty() ? nullptr : enabled.data();
    show_entries(shown, reply);
    if (!shown)
        reply.exit = Exit::no;
}

uint32_t count_section(const SectionArgs &args, const cfg_entry *cfg)
{
    check_section(args);
    const char *const postfix = text_or_null(args.postfix);
    if (args.enabled)
        return get_cfg_section_enabled_count(cfg, postfix, "%s", args.prefix.c_str());
    return get_cfg_section_count(cfg, postfix, text_or_null(args.value), "%s", args.prefix.c_str());
}

void count(const SectionArgs &args, Reply &reply)
{
    const Config cfg = load(args.file);
    uint32_t number;
    if (args.section)
        number = count_section(args, cfg.get());
    else if (args.prefix.empty() && !args.exact)
        number = get_cfg_count(cfg.get());
    else
        number = get_cfg_key_count(cfg.get(), args.exact, "%s", args.prefix.c_str());
    reply.document.set("count", number);
    reply.line(std::to_string(number));
}

constexpr Option kList[] = {
    option<&ListArgs::file>("FILE", "The configuration file").required(),
    option<&ListArgs::prefix>("PREFIX",
                              "What the keys begin with, in its case; exit 1 when none does"),
    option<&ListArgs::exact>("--exact", "The whole key, in any case").needs("PREFIX"),
};
constexpr Option kCount[] = {
    option<&SectionArgs::file>("FILE", "The configuration file").required(),
    option<&SectionArgs::prefix>("PREFIX", "What the keys begin with"),
    option<&SectionArgs::exact>("--exact", "The whole key, in any case").needs("PREFIX"),
    option<&SectionArgs::section>("--section", "Count as the verb section lists")
        .needs("PREFIX")
        .excludes("--exact"),
    option<&SectionArgs::postfix>("--postfix", "What follows the index, from its \".\" on")
        .needs("--section"),
    option<&SectionArgs::value>("--value", "Only entries of this value").needs("--section"),
    option<&SectionArgs::enabled>("--enabled", "Only entries whose value says on")
        .needs("--section")
        .excludes("--value"),
};
constexpr Option kSection[] = {
    option<&SectionArgs::file>("FILE", "The configuration file").required(),
    option<&SectionArgs::prefix>("PREFIX", "The keys up to the index, with the \".\"").required(),
    option<&SectionArgs::postfix>("--postfix", "What follows the index, from its \".\" on"),
    option<&SectionArgs::value>("--value", "Only entries of this value"),
    option<&SectionArgs::enabled>("--enabled", "Only entries whose value says on")
        .excludes("--value"),
};

} // namespace

constexpr Verb kCfgQueries[3] = {
    verb<list>("list", "List the entries in the order of the file",
               "zorvctl cfg list /tmp/system.cfg wireless.1.", kList),
    verb<count>("count", "Count the entries, those of a prefix, or those of a section",
                "zorvctl cfg count /tmp/system.cfg wireless. --section --postfix .status --enabled",
                kCount),
    verb<section>("section", "List the keys PREFIX, index, postfix in natural order: 2 before 10",
                  "zorvctl cfg section /tmp/system.cfg vlan. --postfix .id", kSection),
};

} // namespace ctl

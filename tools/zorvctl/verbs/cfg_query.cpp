// cfg_query.cpp - what a configuration holds: one value, keys by prefix, sections, counts.
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <vector>

#include "cfg.h"

namespace ctl {
namespace {

enum class Type { text, escaped, truth, int32, uint32, decimal, int64 };

struct GetArgs {
    std::string file, key;
    std::optional<std::string> fallback;
    Type type = Type::text;
};

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

// A value as JSON and, byte for byte, as text.
struct Found {
    Value value;
    std::string text;
};

// What one of the library's getters makes of a key; nothing when it falls back.
template <class Getter>
std::optional<Found> number(Getter getter, const cfg_entry *cfg, const std::string &key)
{
    errno = 0; // a range error left over would count as one of this value
    const int64_t value = getter(cfg, 0, "%s", key.c_str());
    errno = 0;
    if (value != getter(cfg, 1, "%s", key.c_str()))
        return std::nullopt;
    return Found{Value(value), std::to_string(value)};
}

std::optional<Found> truth(const cfg_entry *cfg, const std::string &key)
{
    const int value = get_bool(cfg, -1, "%s", key.c_str());
    if (value < 0)
        return std::nullopt;
    return Found{Value(value == 1), value ? "yes" : "no"};
}

std::optional<Found> look_up(Type type, cfg_entry *cfg, const std::string &key)
{
    switch (type) {
    case Type::truth:
        return truth(cfg, key);
    case Type::int32:
        return number(get_int32, cfg, key);
    case Type::uint32:
        return number(get_uint32, cfg, key);
    case Type::decimal:
        return number(get_int32_dec, cfg, key);
    case Type::int64:
        return number(get_int64, cfg, key);
    case Type::text:
    case Type::escaped:
        break;
    }
    const char *text = type == Type::escaped ? get_esc_value(cfg, nullptr, "%s", key.c_str())
                                             : get_value(cfg, nullptr, "%s", key.c_str());
    if (!text)
        return std::nullopt;
    return Found{Value(text), text};
}

void get(const GetArgs &args, Reply &reply)
{
    const Config cfg = load(args.file);
    auto found = look_up(args.type, cfg.get(), args.key);
    reply.document.set("key", args.key).set("found", found.has_value());
    if (!found && args.fallback) { // read as a value would be
        const Config other = parse_text("default=" + *args.fallback + "\n");
        found = look_up(args.type, other.get(), "default");
        if (!found)
            throw Failure(Exit::usage, "--default: not of the type asked for: " + *args.fallback);
    }
    if (!found)
        throw Failure(Exit::no, args.key + (get_value(cfg.get(), nullptr, "%s", args.key.c_str())
                                                ? ": the value is not of the type asked for"
                                                : ": no such key"));
    reply.document.set("value", found->value);
    reply.line(found->text);
    if (json_is_false(found->value.get()))
        reply.exit = Exit::no;
}

void show_entries(const cfg_entry *entries, Reply &reply)
{
    Value list = Value::list();
    for (const cfg_entry *entry = entries; entry; entry = entry->next)
        list.add(Value::object().set("key", entry->key).set("value", entry->value));
    reply.table("entries", list, {"key", "value"});
}

void list(const ListArgs &args, Reply &reply)
{
    const Config cfg = load(args.file);
    const Matches matches(get_cfg_it(cfg.get(), args.exact, "%s", args.prefix.c_str()));
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

constexpr char kReadAs[] = "Read as, at most one of";

constexpr Option kGet[] = {
    option<&GetArgs::file>("FILE", "The configuration file").required(),
    option<&GetArgs::key>("KEY", "The key; case does not matter").required(),
    option<&GetArgs::fallback>("--default", "Print this when there is no such value"),
    choice<&GetArgs::type, Type::escaped>(
        "--escaped", "The value, for use between double quotes in a shell command")
        .one_of(kReadAs),
    choice<&GetArgs::type, Type::truth>("--bool", "A switch: exit 0 for on, 1 for off")
        .one_of(kReadAs),
    choice<&GetArgs::type, Type::int32>("--int",
                                        "A signed 32-bit number; 0x and a leading 0 tell its base")
        .one_of(kReadAs),
    choice<&GetArgs::type, Type::uint32>("--uint", "An unsigned 32-bit number, likewise")
        .one_of(kReadAs),
    choice<&GetArgs::type, Type::decimal>("--dec", "A signed 32-bit number in base 10")
        .one_of(kReadAs),
    choice<&GetArgs::type, Type::int64>("--int64",
                                        "A signed 64-bit number; 0x and a leading 0 tell its base")
        .one_of(kReadAs),
};
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

constexpr Verb kCfgQueries[4] = {
    verb<get>("get", "Print the value of a key; exit 1 when there is none",
              "zorvctl cfg get /tmp/system.cfg radio.1.mode", kGet),
    verb<list>("list", "List the entries in the order of the file",
               "zorvctl cfg list /tmp/system.cfg wireless.1.", kList),
    verb<count>("count", "Count the entries, those of a prefix, or those of a section",
                "zorvctl cfg count /tmp/system.cfg wireless. --section --postfix .status --enabled",
                kCount),
    verb<section>("section", "List the keys PREFIX, index, postfix in natural order: 2 before 10",
                  "zorvctl cfg section /tmp/system.cfg vlan. --postfix .id", kSection),
};

} // namespace ctl

// cfg_diff.cpp - what was added, changed and removed between two configurations.
#include <cstring>

#include "cfg.h"

namespace ctl {
namespace {

struct DiffArgs {
    std::string old_file, new_file;
};

// Keys that end in ".comment" do not count.
bool counts(const cfg_entry *entry)
{
    const char *const dot = strrchr(entry->key, '.');
    return !dot || strcmp(dot, ".comment") != 0;
}

Value change(const char *key, const char *what, const Value &old_value, const Value &new_value)
{
    return Value::object()
        .set("key", key)
        .set("change", what)
        .set("old", old_value)
        .set("new", new_value);
}

// The list of get_cfg_diff_it(), which leaves out entries for which it has no memory.
Value compare(const cfg_entry *old_cfg, const cfg_entry *new_cfg)
{
    const FirstValues old_values = first_values(old_cfg);
    const FirstValues new_values = first_values(new_cfg);
    Value changes = Value::list();
    for (const cfg_entry *entry = new_cfg; entry; entry = entry->next) {
        const auto before = old_values.find(folded(entry->key));
        if (!counts(entry))
            continue;
        if (before == old_values.end())
            changes.add(change(entry->key, "added", Value(), Value(entry->value)));
        else if (before->second != entry->value)
            changes.add(change(entry->key, "changed", Value(before->second), Value(entry->value)));
    }
    for (const cfg_entry *entry = old_cfg; entry; entry = entry->next)
        if (counts(entry) && !new_values.contains(folded(entry->key)))
            changes.add(change(entry->key, "removed", Value(entry->value), Value()));
    return changes;
}

void diff(const DiffArgs &args, Reply &reply)
{
    const Config old_cfg = load(args.old_file);
    const Config new_cfg = load(args.new_file);
    const Value changes = compare(old_cfg.get(), new_cfg.get());
    reply.table("changes", changes, {"change", "key", "old", "new"});
    if (changes.size() != 0)
        reply.exit = Exit::no;
}

constexpr Option kOptions[] = {
    option<&DiffArgs::old_file>("OLD", "The configuration before").required(),
    option<&DiffArgs::new_file>("NEW", "The configuration after").required(),
};

} // namespace

constexpr Verb kCfgDiff[1] = {
    verb<diff>("diff",
               "Show what was added, changed and removed; exit 1 when something was. Keys that "
               "end in .comment do not count",
               "zorvctl cfg diff /tmp/running.cfg /tmp/system.cfg", kOptions),
};

} // namespace ctl

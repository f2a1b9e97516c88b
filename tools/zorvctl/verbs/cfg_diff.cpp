// cfg_diff.cpp - what was added, changed and removed between two configurations.
#include <unordered_map>

#include "cfg.h"

namespace ctl {
namespace {

struct DiffArgs {
    std::string old_file, new_file;
};

using Lookup = std::unordered_map<std::string, const char *>; // folded key, first value

Lookup index(const cfg_entry *cfg)
{
    Lookup values;
    for (; cfg; cfg = cfg->next)
        values.emplace(folded(cfg->key), cfg->value);
    return values;
}

Value change(const cfg_entry *record, const Lookup &old_values, const Lookup &new_values)
{
    const std::string key = folded(record->key);
    const auto before = old_values.find(key);
    Value change = Value::object();
    change.set("key", record->key);
    if (!new_values.contains(key))
        change.set("change", "removed").set("old", record->value).set("new", nullptr);
    else if (before == old_values.end())
        change.set("change", "added").set("old", nullptr).set("new", record->value);
    else
        change.set("change", "changed").set("old", before->second).set("new", record->value);
    return change;
}

void diff(const DiffArgs &args, Reply &reply)
{
    const Config old_cfg = load(args.old_file);
    const Config new_cfg = load(args.new_file);
    const Matches records(get_cfg_diff_it(old_cfg.get(), new_cfg.get()));
    const Lookup old_values = index(old_cfg.get());
    const Lookup new_values = index(new_cfg.get());

    Value changes = Value::list();
    for (const cfg_entry *record = records.get(); record; record = record->next)
        changes.add(change(record, old_values, new_values));
    reply.table("changes", changes, {"change", "key", "old", "new"});
    if (records)
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

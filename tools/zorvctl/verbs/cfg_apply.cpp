// cfg_apply.cpp - changes a configuration file as a whole, or not at all.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <unordered_map>
#include <vector>

#include "base/text_file.h"
#include "cfg.h"

namespace ctl {
namespace {

struct ApplyArgs {
    std::string file;
    std::vector<std::string> settings;
    bool dry_run = false;
};

struct Setting {
    std::string key, value;
};

// What could not be read back as it was written makes no sense on the command line.
Setting parse_setting(const std::string &text)
{
    const auto refuse = [&](const char *why) {
        return Failure(Exit::usage, "--set: " + std::string(why) + ": " + text);
    };
    const size_t equals = text.find('=');
    if (equals == std::string::npos)
        throw refuse("not KEY=VALUE");
    Setting setting = {text.substr(0, equals), text.substr(equals + 1)};
    if (text.find('\n') != std::string::npos)
        throw refuse("a line cannot hold a newline");
    if (setting.key.empty())
        throw refuse("the key is empty");
    if (strchr(" \t", setting.key.front()) || strchr(" \t", setting.key.back()))
        throw refuse("the key has blanks around it");
    if (strchr("#\r", setting.key.front()))
        throw refuse("the line would be skipped as a comment");
    return setting;
}

// Each key once, with the last value given for it.
std::vector<Setting> parse_settings(const std::vector<std::string> &texts)
{
    std::vector<Setting> settings;
    for (const std::string &text : texts) {
        const Setting setting = parse_setting(text);
        const auto same = std::find_if(settings.begin(), settings.end(), [&](const Setting &other) {
            return folded(other.key) == folded(setting.key);
        });
        if (same == settings.end())
            settings.push_back(setting);
        else
            same->value = setting.value;
    }
    return settings;
}

// The configuration as it shall be: records whose texts belong to the old one or to the settings.
class Wanted {
public:
    explicit Wanted(const cfg_entry *old)
    {
        for (; old; old = old->next)
            append(old->key, old->value);
    }

    // Gives the first entry of the key, which is the one that lookups see, a value; or appends an
    // entry. Returns the change; null when there is none.
    Value set(Setting &setting)
    {
        const auto place = first_.find(folded(setting.key));
        Value change = Value::object();
        change.set("key", setting.key);
        if (place == first_.end()) {
            append(setting.key.data(), setting.value.data());
            return change.set("change", "added").set("old", nullptr).set("new", setting.value);
        }
        char *&value = records_[place->second].value;
        if (setting.value == value)
            return {};
        change.set("change", "changed").set("old", value).set("new", setting.value);
        value = setting.value.data();
        return change;
    }

    // Borrowed until the next change.
    const cfg_entry *list()
    {
        for (size_t next = 1; next < records_.size(); next++)
            records_[next - 1].next = &records_[next];
        return records_.empty() ? nullptr : records_.data();
    }

private:
    void append(char *key, char *value)
    {
        first_.emplace(folded(key), records_.size());
        records_.push_back({key, value, nullptr, nullptr});
    }

    std::vector<cfg_entry> records_;
    std::unordered_map<std::string, size_t> first_; // folded key, index of its first record
};

// Stricter than an empty difference: order and repeated keys count, too.
void check_same(const cfg_entry *wanted, const cfg_entry *written, const std::string &file)
{
    for (; wanted && written; wanted = wanted->next, written = written->next)
        if (strcmp(wanted->key, written->key) != 0 || strcmp(wanted->value, written->value) != 0)
            break;
    if (wanted || written)
        throw Failure(Exit::failed, file + ": left as it was: what was written does not read back" +
                                        (wanted ? std::string(" at the key ") + wanted->key : ""));
}

size_t count_comments(const std::string &text)
{
    size_t count = 0;
    for (size_t at = 0; at < text.size(); at = text.find('\n', at) + 1) {
        if (text[at] == '#' && text.compare(at, 12, "# CFG Start\n") != 0)
            count++;
        if (text.find('\n', at) == std::string::npos)
            break;
    }
    return count;
}

void write(const cfg_entry *wanted, Replacement &replacement, const std::string &file)
{
    const std::string &temporary = replacement.begin();
    if (save_cfg(wanted, temporary.c_str()) != 0)
        throw io_failure(temporary, errno);
    const Config written = load(temporary);
    check_same(wanted, written.get(), file);
    replacement.commit();
}

void apply(const ApplyArgs &args, Reply &reply)
{
    std::vector<Setting> settings = parse_settings(args.settings);
    std::optional<Replacement> replacement;
    if (!args.dry_run)
        replacement.emplace(args.file);
    const std::string text = read_file(args.file);
    const Config old = parse_text(text);
    Wanted wanted(old.get());
    Value changes = Value::list();
    for (Setting &setting : settings) {
        const Value change = wanted.set(setting);
        if (!json_is_null(change.get()))
            changes.add(change);
    }

    const bool due = changes.size() != 0;
    if (due && replacement)
        write(wanted.list(), *replacement, args.file);
    reply.table("changes", changes, {"change", "key", "old", "new"});
    reply.document.set("written", due && replacement.has_value());
    const size_t comments = due ? count_comments(text) : 0;
    reply.document.set("comments_dropped", comments);
    if (!due)
        reply.line("nothing to change");
    if (comments != 0)
        reply.line(format("%zu comment lines dropped", comments));
}

constexpr Option kOptions[] = {
    option<&ApplyArgs::file>("FILE", "The configuration file").required(),
    option<&ApplyArgs::settings>("--set", "KEY=VALUE; may be repeated, the last of a key wins")
        .required(),
    option<&ApplyArgs::dry_run>("--dry-run", "Show the changes and write nothing"),
};

} // namespace

constexpr Verb kCfgApply[1] = {
    verb<apply>(
        "apply",
        "Set keys and replace the file, as a whole or not at all. The result is the library's own "
        "format: comments go, the mark of the misc region among them, with its entries settled. "
        "Mode and owner of the file stay",
        "zorvctl cfg apply --set radio.1.channel=36 --set radio.1.txpower=17 /tmp/system.cfg",
        kOptions),
};

} // namespace ctl

// cfg_set.cpp - changes keys of a configuration file, and not a byte besides.
#include <optional>

#include "base/replacement.h"
#include "base/text_file.h"
#include "cfg.h"
#include "cfg_lines.h"
#include "cfg_settings.h"

namespace ctl {
namespace {

struct EditArgs {
    std::string file = "/tmp/system.cfg";
    std::vector<std::string> words; // KEY=VALUE, or KEY
    std::optional<std::string> from;
    double wait = 0;
    bool dry_run = false;
};

// A file's text with some keys set or gone.
class Edit {
public:
    Edit(std::string_view text, const Settings &settings)
        : text_(text), settings_(settings), places_(settings.all().size())
    {
        locate();
    }

    std::string result() const
    {
        std::string result;
        for (CfgLines lines(text_); lines.next();)
            copy(lines.line(), result);
        for (size_t i = 0; i < places_.size(); i++)
            if (const Setting &setting = settings_.all()[i]; setting.value && !places_[i].line)
                result += setting.key + "=" + *setting.value + "\n";
        return result;
    }

    Value changes() const
    {
        Value list = Value::list();
        for (size_t i = 0; i < places_.size(); i++)
            if (is_change(i))
                list.add(change(i));
        return list;
    }

private:
    // The line that lookups see: the last one of a key in the misc region, or else the first.
    struct Place {
        size_t line = 0; // 0: the file has no such key
        std::string_view value;
    };

    void locate()
    {
        for (CfgLines lines(text_); lines.next();) {
            const CfgLine &line = lines.line();
            const auto i = line.entry ? settings_.find(line.key) : std::nullopt;
            if (i && (line.misc || places_[*i].line == 0))
                places_[*i] = {line.number, line.value};
        }
    }

    bool is_change(size_t i) const
    {
        const auto &value = settings_.all()[i].value;
        return places_[i].line ? value != places_[i].value : value.has_value();
    }

    void copy(const CfgLine &line, std::string &result) const
    {
        const auto i = line.entry ? settings_.find(line.key) : std::nullopt;
        if (i && !settings_.all()[*i].value)
            return;
        if (i && line.number == places_[*i].line && is_change(*i))
            result.append(line.text, 0, line.text.find('=') + 1) += *settings_.all()[*i].value;
        else
            result += line.text;
        result += '\n';
    }

    Value change(size_t i) const
    {
        const Setting &setting = settings_.all()[i];
        const bool added = places_[i].line == 0;
        return Value::object()
            .set("key", setting.key)
            .set("change", added           ? "added"
                           : setting.value ? "changed"
                                           : "removed")
            .set("old", added ? Value() : Value(places_[i].value))
            .set("new", setting.value ? Value(*setting.value) : Value());
    }

    std::string_view text_;
    const Settings &settings_;
    std::vector<Place> places_; // of settings_.all()
};

// Lookups must give what was set, and of every other key what they gave before.
void check_lookups(const std::string &before, const std::string &after, const Settings &settings,
                   const std::string &file)
{
    const Config old = parse_text(before);
    const Config written = parse_text(after);
    FirstValues wanted = first_values(old.get());
    for (const Setting &setting : settings.all()) {
        if (setting.value)
            wanted[folded(setting.key)] = *setting.value;
        else
            wanted.erase(folded(setting.key));
    }
    if (wanted != first_values(written.get()))
        throw Failure(Exit::failed, file + ": left as it was: what was written does not read back");
}

void show(const Edit &edit, const std::string &text, bool mended, bool written, Reply &reply)
{
    const Value changes = edit.changes();
    reply.table("changes", changes, {"change", "key", "old", "new"});
    reply.document.set("written", written).set("newline_added", mended);
    if (changes.size() == 0)
        reply.line("nothing to change");
    if (mended)
        reply.line("the last line had no newline, and has one");
    const Value unread = list_lost(text);
    reply.document.set("lines_unread", unread);
    if (unread.size() != 0)
        reply.line(
            format("not read, or not whole: %zu lines, which cfg lint names", unread.size()));
}

// Here the settings are known, each of them sound, and nothing is written yet.
void edit_file(const EditArgs &args, const Settings &settings, Reply &reply)
{
    std::optional<Replacement> replacement;
    if (!args.dry_run)
        replacement.emplace(args.file, args.wait);
    std::string text = read_file(args.file);
    const bool mended = mend_last_line(text);
    const Edit edit(text, settings);
    const std::string result = edit.result();
    const bool due = (mended || result != text) && replacement;
    if (due) {
        check_lookups(text, replacement->write(result), settings, args.file);
        replacement->commit();
    }
    show(edit, result, mended, due, reply);
}

void set(const EditArgs &args, Reply &reply)
{
    Settings settings;
    if (args.from)
        settings.add_file(*args.from);
    for (const std::string &word : args.words)
        settings.add(word, "setting", Exit::usage);
    if (args.words.empty() && !args.from)
        throw Misuse("KEY=VALUE or --from is required");
    edit_file(args, settings, reply);
}

void unset(const EditArgs &args, Reply &reply)
{
    Settings settings;
    for (const std::string &key : args.words) {
        if (key.find('=') != key.npos)
            throw Misuse("a key holds no \"=\": " + key);
        settings.add({key, std::nullopt});
    }
    edit_file(args, settings, reply);
}

constexpr Option kFile = option<&EditArgs::file>("-f,--file", "The file, if not /tmp/system.cfg");
constexpr Option kWait = wait_option<&EditArgs::wait>();
constexpr Option kDryRun =
    option<&EditArgs::dry_run>("--dry-run", "Show the changes and write nothing");
constexpr Option kSet[] = {
    option<&EditArgs::words>("KEY=VALUE", "What keys shall be; the last of a key wins"),
    kFile,
    option<&EditArgs::from>("--from", "A file of more lines KEY=VALUE, taken first; comments and "
                                      "empty lines are skipped, and - is the standard input"),
    kWait,
    kDryRun,
};
constexpr Option kUnset[] = {
    option<&EditArgs::words>("KEY", "A key that shall go, in any case, with all of its lines")
        .required(),
    kFile,
    kWait,
    kDryRun,
};

} // namespace

constexpr Verb kCfgSet[2] = {
    verb<set>("set",
              "Set keys where lookups see them, or at the end; all other lines stay, comments too. "
              "The file is replaced as a whole or not at all",
              "zorvctl cfg set radio.1.channel=36 radio.1.txpower=17\n"
              "  printf 'ntp.1.server=192.0.2.1\\n' | zorvctl cfg set -f new.cfg --from - --wait 5",
              kSet),
    verb<unset>("unset", "Remove keys with all of their lines; a key that is not there is no error",
                "zorvctl cfg unset radio.1.txpower", kUnset),
};

} // namespace ctl

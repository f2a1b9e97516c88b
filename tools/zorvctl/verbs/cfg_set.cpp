// cfg_set.cpp - changes keys of a configuration file, and not a byte besides.
#include <optional>

#include "base/replacement.h"
#include "base/text_file.h"
#include "cfg.h"
#include "cfg_edit.h"
#include "cfg_schema.h"

namespace ctl {
namespace {

struct EditArgs {
    std::string file = "/tmp/system.cfg";
    std::vector<std::string> words; // KEY=VALUE, or KEY
    std::optional<std::string> from, schema;
    double wait = 0;
    bool dry_run = false;
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

// What the schema does not allow is refused; what it would rather not have is told.
void hold_against(const std::string &path, const Settings &settings, Reply &reply)
{
    const Schema schema = load_schema(path);
    SchemaCheck check(schema);
    Findings findings;
    for (const Setting &setting : settings.all())
        check.check(setting.key, *setting.value, 0, findings);
    for (const Finding &finding : findings) {
        if (finding.severity == Severity::error)
            throw Failure(Exit::refused, "schema", finding.message);
        reply.line(printable(finding.message));
    }
    reply.document.set("findings", list_of(findings));
}

// Here the settings are sound, and nothing is written yet.
void edit_file(const EditArgs &args, const Settings &settings, Reply &reply)
{
    std::optional<Replacement> replacement;
    if (!args.dry_run)
        replacement.emplace(args.file, args.wait);
    const Edit edit(replacement ? replacement->read() : read_file(args.file), settings);
    const bool due = edit.is_due() && replacement;
    if (due) {
        check_lookups(edit.before(), replacement->write(edit.after()), settings, args.file);
        replacement->commit();
    }
    edit.show(due, reply);
    const Value unread = list_lost(edit.after());
    reply.document.set("lines_unread", unread);
    if (unread.size() != 0)
        reply.line(
            format("not read, or not whole: %zu lines, which cfg lint names", unread.size()));
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
    if (args.schema)
        hold_against(*args.schema, settings, reply);
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
    option<&EditArgs::schema>("--schema", "Refuse what it does not allow, see system.cfg(5)"),
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
              "  zorvctl cfg set --schema /usr/share/zorv/system.cfg.schema mgmt.kelo.env=stage\n"
              "  printf 'ntp.1.server=192.0.2.1\\n' | zorvctl cfg set -f new.cfg --from - --wait 5",
              kSet),
    verb<unset>("unset", "Remove keys with all of their lines; a key that is not there is no error",
                "zorvctl cfg unset radio.1.txpower", kUnset),
};

} // namespace ctl

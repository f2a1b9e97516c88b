// cfg_apply.cpp - changes a configuration file as a whole, or not at all.
#include <cstring>
#include <optional>
#include <vector>

#include "base/replacement.h"
#include "base/text_file.h"
#include "cfg.h"
#include "cfg_edit.h"

namespace ctl {
namespace {

struct ApplyArgs {
    std::string file;
    std::vector<std::string> settings;
    double wait = 0;
    bool dry_run = false;
};

// In the format of save_cfg().
std::string text_of(const cfg_entry *cfg)
{
    std::string text = "# CFG Start\n";
    for (; cfg; cfg = cfg->next)
        text.append(cfg->key).append("=").append(cfg->value) += '\n';
    return text;
}

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

size_t count_comments(std::string_view text)
{
    size_t count = 0;
    for (CfgLines lines(text); lines.next();)
        if (lines.line().text.starts_with('#') && lines.line().text != "# CFG Start")
            count++;
    return count;
}

void show_dropped(const std::string &text, Reply &reply)
{
    const size_t comments = count_comments(text);
    reply.document.set("comments_dropped", comments);
    if (comments != 0)
        reply.line(format("%zu comment lines dropped", comments));
    const Value lost = list_lost(text);
    if (lost.size() != 0)
        reply.line("lines dropped, or what the parser does not keep of them:");
    reply.table("lines_dropped", lost, {"line", "kind"});
}

void apply(const ApplyArgs &args, Reply &reply)
{
    Settings settings;
    for (const std::string &text : args.settings)
        settings.add(text, "--set", Exit::usage);
    std::optional<Replacement> replacement;
    if (!args.dry_run)
        replacement.emplace(args.file, args.wait);
    const Edit edit(replacement ? replacement->read() : read_file(args.file), settings);
    const bool due = edit.is_due();
    if (due && replacement) {
        const Config wanted = parse_text(edit.after());
        const Config written = parse_text(replacement->write(text_of(wanted.get())));
        check_same(wanted.get(), written.get(), args.file);
        replacement->commit();
    }
    edit.show(due && replacement, reply);
    show_dropped(due ? edit.after() : "", reply);
}

constexpr Option kOptions[] = {
    option<&ApplyArgs::file>("FILE", "The configuration file").required(),
    option<&ApplyArgs::settings>("--set", "KEY=VALUE; may be repeated, the last of a key wins")
        .required(),
    wait_option<&ApplyArgs::wait>(),
    option<&ApplyArgs::dry_run>("--dry-run", "Show the changes and write nothing"),
};

} // namespace

constexpr Verb kCfgApply[1] = {
    verb<apply>(
        "apply",
        "Set keys and replace the file, as a whole or not at all. The result is the library's own "
        "format: comments go, the mark of the misc region among them, with its entries settled. "
        "Mode and owner of the file stay. The verb set keeps comments",
        "zorvctl cfg apply --set radio.1.channel=36 --set radio.1.txpower=17 /tmp/system.cfg",
        kOptions),
};

} // namespace ctl

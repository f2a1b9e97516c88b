// cfg_lint.cpp - what is wrong in a configuration file: lines that the parser loses or keeps in an
// odd way, and what a schema does not allow.
#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/text_file.h"
#include "cfg.h"
#include "cfg_lines.h"
#include "cfg_schema.h"
#include "core/text_tools.h"

namespace ctl {
namespace {

struct LintArgs {
    std::vector<std::string> files;
    std::optional<std::string> schema;
    int level = static_cast<int>(Severity::note);
};

// Walks the lines as the parser does. What it loses, and what no line shows, is an error.
class Linter {
public:
    Linter(std::string_view text, SchemaCheck *schema) : lines_(text), schema_(schema) {}

    void run()
    {
        while (lines_.next())
            check(lines_.line());
        if (schema_)
            schema_->check_missing(findings_);
    }

    const Findings &findings() const { return findings_; }
    size_t lines() const { return lines_.line().number; }
    size_t misc_line() const { return lines_.misc_line(); } // 0 without a misc region

private:
    void find(const char *kind, Severity severity, std::string_view message)
    {
        findings_.push_back({lines(), kind, severity, key_, std::string(message)});
    }

    void check(const CfgLine &line)
    {
        const bool is_whole = line.read.size() == line.text.size();
        key_.clear();
        if (!line.complete)
            find("no-newline", line.text.starts_with('#') ? Severity::warning : Severity::error,
                 "the last line has no newline: a value loses its last byte");
        if (line.text.starts_with('#'))
            return;
        if (!is_whole)
            find("nul-byte", Severity::error,
                 "the line ends here for the parser, less the byte before the NUL");
        if (line.text.starts_with('\r'))
            return find("carriage-return", Severity::error,
                        "a line that begins with a carriage return is skipped");
        if (line.text.find('\r') != line.text.npos)
            find("carriage-return", Severity::error, "the carriage return stays in the text");
        if (!line.entry && !zorv::strip_blanks(line.read).empty())
            find("no-equals", Severity::error, "a line without \"=\" is skipped");
        if (!line.entry)
            return;
        check_key(line);
        std::string value(line.value);
        if (!line.complete && is_whole && !value.empty())
            value.pop_back(); // in the place of the newline
        if (schema_)
            schema_->check(key_, value, line.number, findings_);
    }

    void check_key(const CfgLine &line)
    {
        key_ = line.key;
        if (key_.empty())
            find("empty-key", Severity::warning, "the value has no key");
        else if (key_.size() != line.read.find('='))
            find("blanks", Severity::warning,
                 "blanks around the key are dropped; those of the value stay");
        if (key_.starts_with('#'))
            find("indented-comment", Severity::warning,
                 "this is no comment: \"#\" is not the first byte of the line");

        const auto [first, added] = seen_.emplace(folded(key_), lines());
        if (added)
            return;
        const char *what = misc_line() ? "the value replaces that of" : "kept, but lookups take";
        find("duplicate-key", misc_line() ? Severity::note : Severity::warning,
             format("%s: %s line %zu", key_.c_str(), what, first->second));
    }

    CfgLines lines_;
    SchemaCheck *schema_; // null without a schema
    std::string key_;     // of the current line
    Numbers seen_;        // folded key, first line
    Findings findings_;
};

void lint_file(const std::string &file, const Schema *schema, int level, Reply &reply)
{
    const std::string text = read_input(file);
    std::optional<SchemaCheck> check;
    if (schema)
        check.emplace(*schema);
    Linter linter(text, check ? &*check : nullptr);
    linter.run();

    reply.document.set("file", file).set("lines", linter.lines());
    reply.table("findings", list_of(linter.findings()), {"line", "kind", "severity", "message"});
    if (linter.misc_line() != 0) {
        reply.document.set("misc_line", linter.misc_line());
        reply.line(format("the misc region begins at line %zu", linter.misc_line()));
    } else {
        reply.document.set("misc_line", nullptr);
        reply.line("no misc region");
    }
    for (const Finding &finding : linter.findings())
        if (static_cast<int>(finding.severity) <= level)
            reply.exit = Exit::no;
}

// One file is the document itself; several are its list.
void lint(const LintArgs &args, Reply &reply)
{
    std::optional<Schema> schema;
    if (args.schema)
        schema = load_schema(*args.schema);
    const Schema *const held = schema ? &*schema : nullptr;
    if (args.files.size() == 1)
        return lint_file(args.files[0], held, args.level, reply);

    Value files = Value::list();
    for (const std::string &file : args.files) {
        Reply part(reply.json());
        lint_file(file, held, args.level, part);
        files.add(part.document);
        reply.line(printable(file) + ":");
        reply.text += part.text;
        reply.exit = std::max(reply.exit, part.exit);
    }
    reply.document.set("files", files);
}

constexpr Option kOptions[] = {
    option<&LintArgs::files>("FILE", "The configuration file; - is the standard input").required(),
    option<&LintArgs::schema>("--schema", "What keys and values shall be, see system.cfg(5)"),
    option<&LintArgs::level>("--level",
                             "The least severity that makes it exit 1; note unless given")
        .words("error|warning|note"),
};

} // namespace

constexpr Verb kCfgLint[1] = {
    verb<lint>(
        "lint",
        "Name what the parser loses or keeps oddly, and what a schema does not allow; exit 1 "
        "when there is something",
        "zorvctl cfg lint --schema /usr/share/zorv/system.cfg.schema --level error "
        "/tmp/system.cfg",
        kOptions),
};

} // namespace ctl

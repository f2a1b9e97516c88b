// cfg_lint.cpp - what the parser loses of a configuration file, or keeps in an odd way.
#include <string>
#include <string_view>
#include <unordered_map>

#include "base/text_file.h"
#include "cfg.h"
#include "cfg_lines.h"

namespace ctl {
namespace {

struct LintArgs {
    std::string file;
};

class Linter {
public:
    explicit Linter(std::string_view text) : lines_(text) {}

    void run()
    {
        while (lines_.next())
            check(lines_.line().text);
    }

    const Value &findings() const { return findings_; }
    size_t lines() const { return lines_.line().number; }
    size_t misc_line() const { return lines_.misc_line(); } // 0 without a misc region

private:
    void find(const char *kind, const std::string &message)
    {
        findings_.add(
            Value::object().set("line", lines()).set("kind", kind).set("message", message));
    }

    void check(std::string_view line)
    {
        if (!lines_.line().complete)
            find("no-newline", "the last line has no newline: a value loses its last byte");
        if (line.starts_with('#'))
            return;
        if (line.find('\0') != std::string_view::npos)
            find("nul-byte", "the line ends here for the parser, less the byte before the NUL");
        if (line.starts_with('\r'))
            find("carriage-return", "a line that begins with a carriage return is skipped");
        else if (line.find('\r') != std::string_view::npos)
            find("carriage-return", "the carriage return stays in the text");
        line = line.substr(0, line.find('\0'));
        if (line.starts_with('\r') || line.find_first_not_of(" \t") == std::string_view::npos)
            return;
        const size_t equals = line.find('=');
        if (equals == std::string_view::npos)
            find("no-equals", "a line without \"=\" is skipped");
        else
            check_key(line.substr(0, equals));
    }

    void check_key(std::string_view key)
    {
        constexpr char kBlanks[] = " \t";
        const size_t begin = key.find_first_not_of(kBlanks);
        const size_t end = key.find_last_not_of(kBlanks) + 1;
        if (begin == std::string_view::npos)
            find("empty-key", "the value has no key");
        else if (begin != 0 || end != key.size())
            find("blanks", "blanks around the key are dropped; those of the value stay");
        key = begin == std::string_view::npos ? "" : key.substr(begin, end - begin);
        if (key.starts_with('#'))
            find("indented-comment", "this is no comment: \"#\" is not the first byte of the line");

        const auto [first, added] = seen_.emplace(folded(key), lines());
        if (added)
            return;
        const char *what = misc_line() ? "the value replaces that of" : "kept, but lookups take";
        find("duplicate-key", std::string(key) + ": " + what + format(" line %zu", first->second));
    }

    CfgLines lines_;
    std::unordered_map<std::string, size_t> seen_; // folded key, first line
    Value findings_ = Value::list();
};

void lint(const LintArgs &args, Reply &reply)
{
    const std::string text = read_input(args.file);
    Linter linter(text);
    linter.run();

    reply.document.set("file", args.file).set("lines", linter.lines());
    reply.table("findings", linter.findings(), {"line", "kind", "message"});
    if (linter.misc_line() != 0) {
        reply.document.set("misc_line", linter.misc_line());
        reply.line(format("the misc region begins at line %zu", linter.misc_line()));
    } else {
        reply.document.set("misc_line", nullptr);
        reply.line("no misc region");
    }
    if (linter.findings().size() != 0)
        reply.exit = Exit::no;
}

constexpr Option kOptions[] = {
    option<&LintArgs::file>("FILE", "The configuration file").required(),
};

} // namespace

constexpr Verb kCfgLint[1] = {
    verb<lint>("lint", "Name what the parser loses or keeps oddly; exit 1 when there is something",
               "zorvctl cfg lint /tmp/system.cfg", kOptions),
};

} // namespace ctl

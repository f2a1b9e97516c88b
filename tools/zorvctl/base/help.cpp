// help.cpp - the text of --help, which the completions of the shells read, too.
#include <cstring>

#include "base/command_line.h"

namespace ctl {
namespace {

constexpr size_t kColumn = 30; // where descriptions begin

constexpr char kExitCodes[] =
    "\nExit status: 0 done or yes, 1 no, not found or different, 2 usage,\n"
    "3 not available on this device, 4 refused, 5 input, output or "
    "network failure.\n";

std::string row(const std::string &name, const std::string &description)
{
    const std::string text = "  " + name;
    const size_t gap = text.size() + 2 > kColumn ? 0 : kColumn - text.size();
    return text + (gap ? std::string(gap, ' ') : "\n" + std::string(kColumn, ' ')) + description +
           "\n";
}

std::string row(const Option &option)
{
    std::string name = option.name, description = option.description;
    if (!option.is_positional() && !option.is_flag())
        (name += ' ') += option.form;
    if (option.many && !option.is_flag())
        name += "...";
    if (option.is_required && !option.is_positional())
        name += " REQUIRED";
    if (option.least <= option.most && option.most < 1e300)
        description += format("; from %g to %g", option.least, option.most);
    if (option.needed)
        (description += "; needs ") += option.needed;
    for (const char *excluded : option.excluded)
        if (excluded)
            (description += "; not with ") += excluded;
    return row(name, description);
}

// "FILE [KEY...]"
std::string usage_of(const Option &option)
{
    const std::string name = std::string(option.name) + (option.many ? "..." : "");
    return option.is_required ? " " + name : " [" + name + "]";
}

template <class Wanted>
std::string section(const char *title, std::span<const Option> options, Wanted wanted)
{
    std::string rows;
    for (const Option &option : options)
        if (wanted(option))
            rows += row(option);
    return rows.empty() ? rows : std::string("\n") + title + ":\n" + rows;
}

std::string common_options(bool with_version)
{
    std::string text = section("Common options", kCommonOptions, [](auto &) { return true; });
    return with_version ? text + row(kVersionOption) : text;
}

std::string verb_help(const CommandLine &line)
{
    const Verb &verb = *line.verb;
    std::string positionals;
    for (const Option &option : verb.options)
        if (option.is_positional())
            positionals += usage_of(option);
    std::string text = std::string(verb.description) + "\nUsage: " + command_of(line) +
                       " [OPTIONS]" + positionals + "\n";
    text += section("Positionals", verb.options, [](auto &row) { return row.is_positional(); });
    text += section("Options", verb.options,
                    [](auto &row) { return !row.is_positional() && !row.heading; });
    const char *heading = nullptr;
    for (const Option &option : verb.options) {
        if (!option.heading || option.heading == heading)
            continue;
        heading = option.heading;
        text +=
            section(heading, verb.options, [heading](auto &row) { return row.heading == heading; });
    }
    return text + common_options(false) + "\nExample:\n  " + verb.example + "\n";
}

std::string verb_rows(const Family &family)
{
    std::string rows;
    for (const auto &table : family.verbs)
        for (const Verb &verb : table)
            rows += row(verb.name, verb.description);
    return rows;
}

} // namespace

std::string help_text(Families families, const CommandLine &line)
{
    if (line.verb)
        return verb_help(line);
    std::string rows;
    if (line.family)
        rows = verb_rows(*line.family);
    else
        for (const Family *family : families)
            rows += family->name ? row(family->name, family->description) : verb_rows(*family);
    return std::string(line.family ? line.family->description
                                   : "The command-line face of the appliance's utility library.") +
           "\nUsage: " + command_of(line) + " [OPTIONS] SUBCOMMAND\n" +
           common_options(!line.family) + "\nSubcommands:\n" + rows + kExitCodes;
}

} // namespace ctl

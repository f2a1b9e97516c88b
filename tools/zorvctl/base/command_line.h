// command_line.h - the words of the command line: which verb they name, and what they give it.
#ifndef ZORVCTL_COMMAND_LINE_H
#define ZORVCTL_COMMAND_LINE_H

#include <span>
#include <string>

#include "base/cli.h"

namespace ctl {

using Families = std::span<const Family *const>;

// What all verbs take, and what zorvctl itself takes besides.
extern const Option kCommonOptions[4];
extern const Option kVersionOption;

struct CommandLine {
    const Family *family = nullptr; // of `verb`, or named without one
    const Verb *verb = nullptr;
    Given given;
    bool help = false, version = false, json = false, no_header = false;
    size_t verbosity = 0;
    std::string lost;  // what is wrong with a word that should name a verb
    std::string fault; // the first thing that makes no sense; empty when there is none
};

// Help is found anywhere but behind "--", whatever else makes no sense.
CommandLine parse_command_line(Families families, int argc, char **argv);

// "zorvctl cfg get", as far as the line names a verb.
std::string command_of(const CommandLine &line);

// The text of --help.
std::string help_text(Families families, const CommandLine &line);

} // namespace ctl

#endif

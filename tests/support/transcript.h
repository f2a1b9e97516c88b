// transcript.h - a session of a shell with all that it prints, run again and compared.
//
// A transcript is a text file NAME.t:
//
//   # What it is about: lines in front of the first command.
//   $ zorvctl cfg get system.cfg nobody
//   zorvctl: nobody: no such key in system.cfg
//   [1]
//
//   $ cat >a.cfg <<END
//   > radio.1.channel=36
//   > END
//
// A command begins with "$ " and goes on in lines with "> ". What it prints to either stream
// follows, in the order of writing; a backslash below it stands for a missing newline. "[N]" is its
// exit status where that is not 0. A line "..." stands for any number of lines, none of which
// begins with "[", and "..." within a line for any text. One empty line in front of a command is
// for the reader.
#ifndef ZORV_TESTS_SUPPORT_TRANSCRIPT_H
#define ZORV_TESTS_SUPPORT_TRANSCRIPT_H

#include <string>
#include <vector>

struct Step {
    int line; // of the command
    std::string command;
    std::vector<std::string> shown; // the lines that it prints, and the status
};

// The steps of lines, the first of which has that number; those in front of a command are left out.
std::vector<Step> read_steps(const std::vector<std::string> &lines, int first);

// Has one shell run the steps of a file, behind a script of tests/, which knows the tree's and
// the build's folder as $source and $build. A step whose output is another fails the test, and its
// output is printed as a transcript has it. Only in the device.
void run_steps(const std::string &file, const std::vector<Step> &steps, const std::string &unit);

// The names, without it, of a folder's files with that ending.
std::vector<std::string> names_in(const std::string &folder, const std::string &ending);

#endif

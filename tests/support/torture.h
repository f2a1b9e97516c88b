// torture.h - every way in which memory and system calls may fail in a scenario, one by one.
//
// A scenario runs again and again, each time in a process of its own: with the n-th allocation of
// the library failing, with all from the n-th on, and with the n-th open, read, write and so on
// failing with each of its errors (EINTR included). What it returns tells its outcome: the text,
// and behind ": " the lines it logged, joined by "; ", with "#" for numbers; errors come without
// level and module:
//
//     "none: url_parse: #: malloc(#) failed"
//
// A run that ends by a signal, does not end, or leaves more blocks of the library's or more
// descriptors than the undisturbed run says so in its outcome. The scenario runs while calls fail:
// what it needs is made by `prepare`, and behind settle() nothing fails any more.
#ifndef ZORV_TESTS_SUPPORT_TORTURE_H
#define ZORV_TESTS_SUPPORT_TORTURE_H

#include "support/device.h"

class Torture : public Device {
public:
    struct Row {
        const char *name;
        std::function<std::string()> scenario; // its undisturbed text is a success
        // Patterns, with "*", of the other texts that may come.
        std::vector<const char *> outcomes = {};
        std::function<void()> prepare = [] {};
        long most = 40; // so many of the calls of a kind fail, evenly spread
        // Patterns of what should not come of it but does today, each with a comment.
        std::vector<const char *> known = {};
        std::vector<const char *> messages = {}; // pieces of lines; each must be logged by some run
    };

    // Each outcome is that of the undisturbed run, with or without log lines, or has a pattern; and
    // each of the known comes. The undisturbed run logs nothing. Prints how many faults of each
    // kind there were.
    static void torture(const std::vector<Row> &rows);

    // From here to the end of the scenario nothing fails. Returns what it is given.
    static std::string settled(const std::string &text) { return settle(), text; }
    static void settle();

    // The scenario of a command line that ends in zorvctl and its arguments: "[status] output", the
    // messages included. Calls and allocations of zorvctl itself fail.
    static std::function<std::string()> command(const std::string &line);
};

#endif

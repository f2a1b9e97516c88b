// output.h - what every verb answers with: exit codes, failures, one reply for people and for JSON.
//
// A verb fills a Reply and returns, or throws a Failure. It never writes to standard output
// itself: the reply is written once, at the end, as text or as exactly one JSON document. Those
// that go on until a signal write a document a line.
#ifndef ZORVCTL_OUTPUT_H
#define ZORVCTL_OUTPUT_H

#include <initializer_list>
#include <stdexcept>
#include <string>
#include <string_view>

#include "base/value.h"

namespace ctl {

enum class Exit {
    done = 0,        // done, or yes
    no = 1,          // no, not found, differs
    usage = 2,       // the command line makes no sense
    unavailable = 3, // this device does not have it
    refused = 4,     // a gate is shut
    failed = 5,      // input, output or network failed
};

// Ends a verb: the message goes to standard error, or into the JSON document as
// {"error":{"code":...,"message":...}}.
class Failure : public std::runtime_error {
public:
    // The code is the exit's own word ("not-found", "usage", "unavailable", "refused", "io")...
    Failure(Exit exit, const std::string &message);
    // ... or a more exact one, such as "network".
    Failure(Exit exit, const char *code, const std::string &message)
        : std::runtime_error(message), exit_(exit), code_(code)
    {
    }

    Exit exit() const { return exit_; }
    const char *code() const { return code_; }

private:
    Exit exit_;
    const char *code_; // a literal
};

// What the command line's words come to makes no sense: the message names the verb's help, too.
class Misuse : public Failure {
public:
    explicit Misuse(const std::string &message) : Failure(Exit::usage, message) {}
};

// The failure of a system call on a path: "path: No such file or directory", exit 5.
Failure io_failure(const std::string &path, int error);

// printf into a string.
std::string format(const char *pattern, ...) __attribute__((format(printf, 1, 2)));

// Bytes as hexadecimal digits, in small letters.
std::string hexadecimal(std::string_view bytes);

// Shows as \xNN the bytes of control characters, which terminals obey, of characters that are not
// seen or turn the direction of writing, but for those of `kept`; and bytes that are not UTF-8.
std::string printable(std::string_view text, std::string_view kept = {});

class Reply {
public:
    explicit Reply(bool json, bool header = true) : json_(json), header_(header) {}

    // NOLINTBEGIN(misc-non-private-member-variables-in-classes): there for the verbs to fill
    Value document =
        Value::object(); // the JSON document; its lists stand under a name of their own
    std::string text;    // the same for people
    Exit exit = Exit::done;
    bool in_lines = false; // the JSON is a document for each next(), and none at the end
    // NOLINTEND(misc-non-private-member-variables-in-classes)

    // Whether JSON is wanted; only for verbs to whom the other half would be costly.
    bool json() const { return json_; }

    // Adds a line of text, and its newline.
    void line(std::string_view content) { text.append(content) += '\n'; }

    // Adds bytes that others wrote, as they are. On a terminal they are printable, in lines.
    void bytes(std::string_view content);

    // An empty reply of the same kind, for text that goes into this one.
    Reply blank() const { return Reply(json_, header_); }

    // A list of objects: document member `name`, and in text a table of the columns, which are
    // names of members; "member=title" where the title is another word.
    void table(const char *name, const Value &list, std::initializer_list<const char *> columns);

    // An object's members: into the document, and as aligned "name  value" lines.
    void pairs(const Value &object);

    // There is no such thing: "value" is null, exit status 1; people get the message as a failure.
    void miss(const std::string &message);

    // For a verb that goes on for a while: shows its text so far, without waiting for the end.
    // With JSON the text is dropped; the document is still written once, at the end.
    void flush();

    // The same for a verb whose JSON is lines: writes the document, too, and begins another one.
    void next();

    // What is still to be written.
    std::string rest() const;

private:
    bool json_, header_; // the second: tables have a line of titles
};

// Writes the reply. Returns the process's exit status: the reply's, or 5 when writing failed.
int deliver(const Reply &reply);

// Writes the failure, as text or JSON; returns the exit status.
int deliver(const Failure &failure, bool json);

} // namespace ctl

#endif

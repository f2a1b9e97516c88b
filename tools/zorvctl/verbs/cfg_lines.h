// cfg_lines.h - the lines of a configuration file, as the parser takes them.
#ifndef ZORVCTL_CFG_LINES_H
#define ZORVCTL_CFG_LINES_H

#include <string_view>

#include "base/value.h"

namespace ctl {

struct CfgLine {
    size_t number = 0;
    std::string_view text;       // all of it but its newline
    std::string_view read;       // of that what the parser reads: up to a NUL byte
    bool complete = true;        // it has its newline
    bool misc = false;           // it stands in the misc region
    bool entry = false;          // it has a key and a value...
    std::string_view key, value; // ... which a last line without a newline has, once that is there
    const char *lost = nullptr;  // the kind, by lint's name, of what the parser does not keep
};

class CfgLines {
public:
    explicit CfgLines(std::string_view text) : rest_(text) {}

    // Goes to the next line; false behind the last one.
    bool next();

    const CfgLine &line() const { return line_; }
    size_t misc_line() const { return misc_line_; } // so far; 0 without a misc region

private:
    void take_apart();

    std::string_view rest_;
    CfgLine line_;
    size_t misc_line_ = 0;
};

// What the parser does not keep of a text, comments aside: a list of `line` and `kind`.
Value list_lost(std::string_view text);

} // namespace ctl

#endif

// doctor.h - what the library reads on a unit, and whether each of it is there and sane.
#ifndef ZORVCTL_DOCTOR_H
#define ZORVCTL_DOCTOR_H

#include <span>
#include <string>
#include <vector>

#include "base/output.h"

namespace ctl {

enum class State {
    ok,
    absent,  // optional and not there: something else holds instead
    missing, // required and not there
    unfit,   // there, but not what the library makes sense of
};

struct Condition {
    State state;
    std::string detail; // what stands there, or what is wrong with it
};

inline bool is_off(const Condition &condition)
{
    return condition.state == State::missing || condition.state == State::unfit;
}

const char *word(State state);

enum class Kind {
    file,
    folder,
    device,
    tool,     // looked up on PATH
    anywhere, // the check looks for it
};

// One thing that the library reads, or one value in a file.
struct Thing {
    const char *path;
    const char *key; // of a value; of a table the words that head it; "" else
    Kind kind;
    bool required;
    Condition (*check)(const Thing &thing); // of what is there, and may be read
    const char *readers;                    // verbs of zorvctl that show what they make of it
    const char *without;                    // what is off, or holds instead
};

extern const std::span<const Thing> kThings;

Condition examine(const Thing &thing);

// The checks. Each reads with the library's own readers where there are some.
Condition check_presence(const Thing &thing);
Condition check_line(const Thing &thing);       // a first line
Condition check_heading(const Thing &thing);    // a first line that holds the key's words
Condition check_text(const Thing &thing);       // a value, of any UTF-8
Condition check_hex(const Thing &thing);        // a value, of hexadecimal digits
Condition check_decimal(const Thing &thing);    // a value, of decimal digits
Condition check_number(const Thing &thing);     // a file that begins with a number
Condition check_digit(const Thing &thing);      // a file that begins with a digit
Condition check_flag(const Thing &thing);       // "true" or "false"
Condition check_address(const Thing &thing);    // an IPv4 address
Condition check_interface(const Thing &thing);  // the name of an interface
Condition check_config(const Thing &thing);     // entries in the format of system.cfg
Condition check_system_cfg(const Thing &thing); // the same, by its mode as well
Condition check_board(const Thing &thing);      // the ids of a known board
Condition check_serial(const Thing &thing);     // 12 hexadecimal digits, at least
Condition check_mac(const Thing &thing);        // the main MAC address
Condition check_country(const Thing &thing);    // any of the keys for it
Condition check_bomrev(const Thing &thing);     // revision of the bill of materials
Condition check_site_key(const Thing &thing);   // of discovery
Condition check_site_group(const Thing &thing); // of discovery
Condition check_lease(const Thing &thing);      // a word of the DHCP client
Condition check_version(const Thing &thing);    // of the firmware
Condition check_build(const Thing &thing);      // a release, or not
Condition check_script(const Thing &thing);     // the system script

// The page in brief, lines of it.
struct Summary {
    std::vector<std::string> off, right;
};

// The services that reports and traces go to, and what holds them back: the first part of the page.
void show_sending(Summary &summary, Reply &reply);

} // namespace ctl

#endif

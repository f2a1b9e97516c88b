// zorvctl.h - the real program, as a script sees it: exit status, one JSON document, files left
// behind.
#ifndef ZORV_TESTS_TOOLS_ZORVCTL_H
#define ZORV_TESTS_TOOLS_ZORVCTL_H

#include <string>

#include "support/device.h"
#include "support/json.h"

inline void install_zorvctl()
{
    Device::must_run("mkdir -p /tmp/work && ln -s " ZORVCTL " /usr/local/bin/zorvctl");
}

inline Device::Outcome ctl(const std::string &arguments)
{
    return Device::run("cd /tmp/work && zorvctl " + arguments);
}

// An exit status, and a text that is in what is printed to either stream.
inline void expect(int status, const std::string &text, const std::string &arguments)
{
    SCOPED_TRACE(arguments);
    const Device::Outcome outcome = ctl(arguments);
    EXPECT_EQ(outcome.status, status);
    EXPECT_THAT(outcome.output + outcome.errors, testing::HasSubstr(text));
}

// The kernel's own /proc is there: a sanitizer asks it where the stack is before an exception
// unwinds it.
class Zorvctl : public Device {
protected:
    Zorvctl()
    {
        install_zorvctl();
        kernel_proc();
    }
};

// The same with a /proc to fill.
class ZorvctlUnit : public Device {
protected:
    ZorvctlUnit()
    {
        install_zorvctl();
        kernel_processes();
    }
};

#endif

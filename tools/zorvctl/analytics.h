// analytics.h - what the running unit has been told about reporting.
#ifndef ZORVCTL_ANALYTICS_H
#define ZORVCTL_ANALYTICS_H

#include <zorv/file.h>

namespace ctl {

constexpr char kModeFile[] = "/var/run/system.analytics.mode";

// 0 off, 1 with identities, 2 anonymous.
struct UnitMode {
    long mode = freadlong(kModeFile, 2);
    bool is_told = mode == freadlong(kModeFile, 0); // by the file; else the mode is the default
};

} // namespace ctl

#endif

// analytics.h - what the running unit has been told about reporting.
#ifndef ZORVCTL_ANALYTICS_H
#define ZORVCTL_ANALYTICS_H

#include <zorv/file.h>

#include "base/ask.h"
#include "telemetry/report_gate.h"

namespace ctl {

inline constexpr auto &kModeFile = zorv::kAnalyticsMode;
inline constexpr auto &kCoredumpFile = zorv::kUploadAllowed;

// A number in a state file, and whether it stands there or is the default.
struct UnitSetting {
    long value;
    bool is_told;
};

inline UnitSetting tell(const char *path, long value)
{
    return {value, value == ask(path, [&] { return freadlong(path, ~value); })};
}

// 0 off, 1 with identities, 2 anonymous; any other number is on as well.
inline UnitSetting unit_mode()
{
    return tell(kModeFile, ask(kModeFile, [] { return zorv::analytics_mode("zorvctl"); }));
}

// 1 lets dumps be uploaded, nothing else does.
inline UnitSetting unit_coredump()
{
    return tell(kCoredumpFile, ask(kCoredumpFile, [] { return freadlong(kCoredumpFile, 0); }));
}

} // namespace ctl

#endif

// report_gate.h - what has to hold before reports may leave the unit. Others write these files.
#ifndef ZORV_TELEMETRY_REPORT_GATE_H
#define ZORV_TELEMETRY_REPORT_GATE_H

#include <unistd.h>
#include <zorv/file.h>

namespace zorv {

inline constexpr char kClockIsSet[] = "/var/run/ntp.ready";
inline constexpr char kBridgeHasAddress[] = "/var/run/ipready.br0";
inline constexpr char kAnalyticsMode[] = "/var/run/system.analytics.mode";
inline constexpr char kUploadAllowed[] = "/var/run/system.analytics.coredump";

enum Mode { kOff, kWithIdentities, kAnonymous };

inline bool is_ready(const char *path)
{
    return access(path, R_OK) == 0;
}

// Any number but kOff lets reports leave.
inline long analytics_mode()
{
    return freadlong(kAnalyticsMode, kAnonymous);
}

// Whether the bytes of dumps may leave, too.
inline bool is_upload_allowed()
{
    return freadlong(kUploadAllowed, 0) == 1;
}

} // namespace zorv

#endif

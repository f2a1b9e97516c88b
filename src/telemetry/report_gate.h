// report_gate.h - what has to hold before reports may leave the unit. Others write these files.
#ifndef ZORV_TELEMETRY_REPORT_GATE_H
#define ZORV_TELEMETRY_REPORT_GATE_H

#include <cerrno>
#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>
#include <zorv/file.h>

#include "core/lines.h"
#include "core/log_gate.h"
#include "core/own.h"

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

// Any number but kOff lets reports leave; what freadlong() takes for none, a missing file above
// all, is kAnonymous. A file that is there and cannot be read may hold the owner's kOff: nothing
// leaves, which is logged for the module.
inline long analytics_mode(const char *module)
{
    const Fd file(open(kAnalyticsMode, O_RDONLY | O_CLOEXEC));
    if (!file && errno == ENOENT)
        return kAnonymous;
    char line[16];
    const ssize_t length = TEMP_FAILURE_RETRY(read(file.get(), line, sizeof line - 1));
    if (length < 0) {
        LOG_GATED(2, LOG_WARNING, module, __func__, "Nothing is sent: %s cannot be read",
                  kAnalyticsMode);
        return kOff;
    }
    line[length] = '\0';
    cut_at(line, "\n");
    char *end;
    const long mode = strtol(line, &end, 10);
    return end != line ? mode : long{kAnonymous};
}

// Whether the bytes of dumps may leave, too.
inline bool is_upload_allowed()
{
    return freadlong(kUploadAllowed, 0) == 1;
}

} // namespace zorv

#endif

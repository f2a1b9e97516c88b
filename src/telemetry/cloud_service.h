// cloud_service.h - which of the cloud's services the unit talks to.
#ifndef ZORV_TELEMETRY_CLOUD_SERVICE_H
#define ZORV_TELEMETRY_CLOUD_SERVICE_H

#include <zorv/status.h>

namespace zorv {

// HTTPS origins without a slash at the end; the build chooses them, see cmake/ZorvServices.cmake.
struct CloudService {
    // NOLINTBEGIN(misc-non-private-member-variables-in-classes): an aggregate that knows its row
    char production[64];
    char staging[64];
    char development[64];
    // NOLINTEND(misc-non-private-member-variables-in-classes)

    // The origin that the unit's cloud environment selects.
    const char *origin() const
    {
        switch (get_kelo_env_limit_prod()) {
        case 1:
            return staging;
        case 2:
            return development;
        default:
            return production;
        }
    }
};

inline constexpr CloudService kCrashService = {ZORV_CRASH_ORIGIN, ZORV_CRASH_STAGING_ORIGIN,
                                               ZORV_CRASH_DEVELOPMENT_ORIGIN};
inline constexpr CloudService kTraceService = {ZORV_TRACE_ORIGIN, ZORV_TRACE_STAGING_ORIGIN,
                                               ZORV_TRACE_DEVELOPMENT_ORIGIN};

} // namespace zorv

#endif

// Whether crashes may be reported: by the configuration, and by the state of the unit.
#include <zorv/crash.h>

#include <unistd.h>
#include <zorv/file.h>

#include "telemetry/crash_report.h"

namespace {

constexpr char kClockIsSet[] = "/var/run/ntp.ready";
constexpr char kBridgeHasAddress[] = "/var/run/ipready.br0";
constexpr char kMode[] = "/var/run/system.analytics.mode";

enum Mode { kOff, kWithIdentities, kAnonymous };

} // namespace

int get_analytics_mode(const cfg_entry *cfg)
{
    const int anonymous = get_bool(cfg, -1, "system.analytics.anonymous");
    // On purpose: without a choice of anonymity, "off" and no status at all mean anonymous reports.
    if (anonymous < 0)
        return get_bool(cfg, 0, "system.analytics.status") ? kWithIdentities : kAnonymous;
    if (!get_bool(cfg, 1, "system.analytics.status"))
        return kOff;
    return anonymous ? kAnonymous : kWithIdentities;
}

int get_analytics_coredump_mode(const cfg_entry *cfg)
{
    return get_bool(cfg, 0, "system.analytics.coredump") ? 1 : 0;
}

bool zorv::analytics_reporting_ready()
{
    if (access(kClockIsSet, R_OK) != 0 || access(kBridgeHasAddress, R_OK) != 0)
        return false;
    return freadlong(kMode, kAnonymous) != kOff;
}

// Whether crashes may be reported: by the configuration, and by the state of the unit.
#include <zorv/crash.h>

#include "telemetry/crash_report.h"
#include "telemetry/report_gate.h"

using namespace zorv;

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
    return is_ready(kClockIsSet) && is_ready(kBridgeHasAddress) && analytics_mode("crash") != kOff;
}

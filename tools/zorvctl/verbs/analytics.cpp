// analytics.cpp - what a configuration says about reporting, and what the running unit was told.
#include "analytics.h"

#include <string>

#include <zorv/crash.h>

#include "cfg.h"

namespace ctl {
namespace {

struct AnalyticsArgs {
    std::string file = "/tmp/system.cfg";
};

std::string meaning_of_mode(long mode)
{
    switch (mode) {
    case 0:
        return "reports are off";
    case 1:
        return "reports with identities";
    case 2:
        return "anonymous reports";
    default:
        return "reports are on";
    }
}

Value setting(const char *name, long configured, const UnitSetting &unit, const char *file)
{
    return Value::object()
        .set("setting", name)
        .set("configured", configured)
        .set("unit", unit.value)
        .set("from", unit.is_told ? "file" : "default")
        .set("file", file);
}

void analytics(const AnalyticsArgs &args, Reply &reply)
{
    const Config config = load(args.file);
    const int mode = get_analytics_mode(config.get());
    const int coredump = get_analytics_coredump_mode(config.get());
    const UnitSetting unit = unit_mode(), dumps = unit_coredump();
    Value settings = Value::list();
    settings.add(
        setting("mode", mode, unit, kModeFile).set("meaning", meaning_of_mode(unit.value)));
    settings.add(setting("coredump", coredump, dumps, kCoredumpFile)
                     .set("meaning", dumps.value == 1 ? "dumps may go" : "no dumps"));
    reply.document.set("file", args.file);
    reply.table("settings", settings, {"setting", "configured", "unit", "from", "meaning"});
    if (mode != unit.value || coredump != dumps.value)
        reply.exit = Exit::no;
}

constexpr Option kOptions[] = {
    option<&AnalyticsArgs::file>("FILE", "The configuration, /tmp/system.cfg unless given"),
};

constexpr Verb kVerbs[] = {
    verb<analytics>("analytics",
                    "Show what may be reported, by a configuration and by the running unit",
                    "zorvctl analytics /etc/persistent/cfg/mgmt", kOptions),
};

} // namespace

extern const Family analytics_family = {nullptr, nullptr, {kVerbs}};

} // namespace ctl

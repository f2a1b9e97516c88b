// What every report begins with, and where it goes.
#include <jansson.h>
#include <zorv/crash.h>

#include <cstdint>
#include <cstdio>
#include <ctime>

#include <sys/utsname.h>
#include <zorv/exec.h>
#include <zorv/file.h>
#include <zorv/status.h>

#include "core/log_gate.h"
#include "core/own.h"
#include "platform/system_info.h"
#include "telemetry/cloud_service.h"
#include "telemetry/crash_report.h"
#include "telemetry/device_facts.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "crash";
constexpr char kFilterSystemCfg[] =
    "cat /tmp/system.cfg | syswrapper.sh systemcfg-sensitive-data-filter";
constexpr size_t kMostOutput = 1 << 20; // bytes of a command's output, a NUL included
constexpr size_t kScratch = 64;         // bytes of a value or a number, its NUL included

void add_device_id(Members &report)
{
    char id[kScratch];
    if (*freadvalue(kSystemInfo, "device.anonid", id, sizeof id, "") != '\0')
        report.set_text("anonymous_device_id", id);
}

void add_kernel(Members &report)
{
    utsname kernel;
    if (uname(&kernel) != 0)
        return;
    report.set_text("kernel_version", kernel.release);
    report.set_text("architecture", kernel.machine);
}

void add_times(Members &report)
{
    report.set("uptime", json_integer(get_uptime_from_sysinfo()));
    // On purpose 32 bits; kept for the service that reads it.
    const auto boot = static_cast<int32_t>(time(nullptr) - get_uptime_from_sysinfo());
    report.set("boot_time", json_integer(boot));
}

void add_local_time(Members &report)
{
    tzset(); // localtime() would, localtime_r() need not: the zone may have changed
    const time_t now = time(nullptr);
    tm local;
    char scratch[kScratch];
    if (localtime_r(&now, &local) &&
        strftime(scratch, sizeof scratch, "%Y-%m-%dT%H:%M:%S", &local) > 0)
        report.set_text("system_time", scratch);
}

} // namespace

int zorv::build_crash_report_url(char (&url)[kReportUrl], const char *kind)
{
    const int length = snprintf(url, sizeof url, "%s/v1/%s", kCrashService.origin(), kind);
    return length < static_cast<int>(sizeof url) ? 0 : length;
}

int json_object_capture_popen(json_t *obj, const char *key, const char *cmd)
{
    if (!cmd)
        return 0;
    const Text output(popen_alloc_output(cmd, kMostOutput));
    if (!output)
        log_warning("Failed to capture the output of command %s", cmd);
    json_t *const text = text_to_json(output ? output.get() : "", {kModule, __func__});
    const int rc = json_object_set_new(obj, key, text);
    return output ? rc : -1;
}

json_t *zorv::generate_common_payload(const char *crash_log_cmd, bool with_system_cfg)
{
    Json payload(json_object());
    json_t *const object = payload.get();
    Members report(object, {kModule, __func__});
    report.set_text("product_line", "network");
    set_controller_ids(report, kScratch);
    add_device_id(report);
    add_kernel(report);
    set_board_revision(report, "bomrev");
    set_manufacturer(report);
    set_model(report);
    set_version(report);
    report.set("is_default", json_boolean(is_default()));
    add_times(report);
    set_controller_version(report, "controller_version");
    add_local_time(report);
    if (!report.is_whole())
        return nullptr;

    json_object_capture_popen(object, "crash_log", crash_log_cmd);
    if (with_system_cfg)
        json_object_capture_popen(object, "system_cfg", kFilterSystemCfg);
    return payload.release();
}

json_t *zorv::generate_kernel_crash_payload()
{
    Json payload(generate_common_payload("oopsdump | syswrapper.sh sensitive-data-filter", true));
    Members report(payload.get(), {kModule, __func__});
    report.set_text("source", "oopsdump");
    report.set_text("sender", "firmware");
    return report.is_whole() ? payload.release() : nullptr;
}

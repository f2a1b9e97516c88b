// What every report begins with, and where it goes.
#include <zorv/crash.h>

#include <cstdint>
#include <cstdio>
#include <ctime>

#include <sys/utsname.h>
#include <zorv/board.h>
#include <zorv/exec.h>
#include <zorv/file.h>
#include <zorv/status.h>

#include "core/log_gate.h"
#include "core/own.h"
#include "platform/config_files.h"
#include "platform/system_info.h"
#include "telemetry/cloud_service.h"
#include "telemetry/crash_report.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "crash";
constexpr char kIsDefault[] = "/proc/zorvhal/status/IsDefault";
constexpr char kFilterSystemCfg[] =
    "cat /tmp/system.cfg | syswrapper.sh systemcfg-sensitive-data-filter";
constexpr size_t kMostOutput = 1 << 20; // bytes of a command's output, a NUL included
constexpr size_t kScratch = 64;         // bytes of a value or a number, its NUL included

// Identifiers that a unit need not have.
constexpr struct {
    char member[24];
    char key[32];
    bool is_of_board; // the board's file has it, not the configuration
} kIdentities[] = {
    {"anonymous_controller_id", "pluvo.anonymous_controller_id", false},
    {"anonymous_site_id", "pluvo.anonymous_site_id", false},
    {"anonymous_device_id", "device.anonid", true},
};

// Sets a member; a text that is not UTF-8 gave no string and is left out.
void set_text(json_t *object, const char *name, const char *text)
{
    json_object_set_new(object, name, json_string(text));
}

void set_number_text(json_t *object, const char *name, int number)
{
    char scratch[kScratch];
    snprintf(scratch, sizeof scratch, "%d", number);
    set_text(object, name, scratch);
}

void add_identities(json_t *object)
{
    char scratch[kScratch];
    for (const auto &identity : kIdentities) {
        const char *const path = identity.is_of_board ? kSystemInfo : kSystemCfg;
        if (*freadvalue(path, identity.key, scratch, sizeof scratch, "") != '\0')
            set_text(object, identity.member, scratch);
    }
}

void add_kernel(json_t *object)
{
    utsname kernel;
    if (uname(&kernel) != 0)
        return;
    set_text(object, "kernel_version", kernel.release);
    set_text(object, "architecture", kernel.machine);
}

void add_times(json_t *object)
{
    json_object_set_new(object, "uptime", json_integer(get_uptime_from_sysinfo()));
    // On purpose 32 bits: the service compares it with records of its own, which have no more.
    const auto boot = static_cast<int32_t>(time(nullptr) - get_uptime_from_sysinfo());
    json_object_set_new(object, "boot_time", json_integer(boot));
}

void add_local_time(json_t *object)
{
    tzset(); // localtime() would, localtime_r() need not: the zone may have changed
    const time_t now = time(nullptr);
    tm local;
    char scratch[kScratch];
    if (localtime_r(&now, &local) &&
        strftime(scratch, sizeof scratch, "%Y-%m-%dT%H:%M:%S", &local) > 0)
        set_text(object, "system_time", scratch);
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
    const int rc = json_object_set_new(obj, key, json_string(output ? output.get() : ""));
    return output ? rc : -1;
}

json_t *zorv::generate_common_payload(const char *crash_log_cmd, bool with_system_cfg)
{
    const board_record *const board = board_identify();
    Json payload(json_object());
    if (!payload)
        return nullptr;
    json_t *const object = payload.get();
    set_text(object, "product_line", "network");
    add_identities(object);
    add_kernel(object);
    set_number_text(object, "bomrev", get_boardrevision(kSystemInfo));
    set_number_text(object, "manufacturer_id", static_cast<int>(get_manufid()));
    set_text(object, "model", board->platform);

    const char *version;
    if (const int rc = get_version(&version))
        log_warning("Couldn't obtain firmware version! error code = %d", rc);
    set_text(object, "version", version);
    json_object_set_new(object, "is_default", json_boolean(system_is_xxx(kIsDefault, 0)));
    add_times(object);
    char scratch[kScratch];
    set_text(object, "controller_version",
             freadvalue(kSystemCfg, "pluvo.version", scratch, sizeof scratch, "unknown"));
    add_local_time(object);

    json_object_capture_popen(object, "crash_log", crash_log_cmd);
    if (with_system_cfg)
        json_object_capture_popen(object, "system_cfg", kFilterSystemCfg);
    return payload.release();
}

json_t *zorv::generate_kernel_crash_payload()
{
    json_t *const payload =
        generate_common_payload("oopsdump | syswrapper.sh sensitive-data-filter", true);
    set_text(payload, "source", "oopsdump"); // a NULL payload stays one
    set_text(payload, "sender", "firmware");
    return payload;
}

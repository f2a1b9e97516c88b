// The kernel's oops: whether there is one, and its report.
#include <zorv/crash.h>

#include <jansson.h>
#include <unistd.h>
#include <zorv/status.h>

#include "core/log_gate.h"
#include "core/own.h"
#include "exec/shell.h"
#include "telemetry/crash_report.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "crash";

// Whether the kernel holds an oops: -1 until has_oops() has been told; 0 after oops_clear().
constinit int g_oops = -1;

} // namespace

int has_oops()
{
    if (g_oops < 0) {
        const int status = run_shell("oopsdump -e || exit 1");
        if (status < 0) // it did not tell
            return 0;
        g_oops = status == 0 ? 1 : 0;
    }
    return g_oops;
}

void oops_clear()
{
    run_shell("oopsdump > /var/run/last-crashlog.txt");
    run_shell("oopsdump -c");
    g_oops = 0;
}

int send_kernel_crash()
{
    if (!has_oops()) {
        log_error("Tried processing a crash when no crash was found");
        return -1;
    }
    if (!analytics_reporting_ready())
        return -2;
    if (access(kKernelCrashSent, F_OK) == 0) {
        log_debug("Kernel crashlog already sent to analytics");
        return 0;
    }
    log_info("Processing kernel crash");
    char url[kReportUrl];
    if (build_crash_report_url(url, "kernel-crash") != 0) {
        log_error("URL truncated");
        return -3;
    }
    const Json payload(generate_kernel_crash_payload());
    if (!payload) {
        log_error("Failed to generate kernel crash payload");
        return -4;
    }
    if (const int rc = post_crash(url, payload.get(), nullptr)) {
        log_warning("Failed to process kernel crash: %d", rc);
        return -5;
    }
    touch_file(kKernelCrashSent, 0644);
    return 0;
}

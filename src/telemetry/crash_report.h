// crash_report.h - the steps that all crash reports share.
#ifndef ZORV_TELEMETRY_CRASH_REPORT_H
#define ZORV_TELEMETRY_CRASH_REPORT_H

#include <cstddef>

#include <jansson.h>
#include <zorv/curl_simple.h>

#include "core/own.h"
#include "net/response.h"

namespace zorv {

constexpr size_t kReportUrl = 128; // an origin of 63 characters and a kind leave half of it free

// The oops has been reported; gone after a reboot, as the need of it is.
inline constexpr char kKernelCrashSent[] = "/var/run/last-crashlog.sent";

// Whether reports may leave the unit: its clock is set, its bridge has an address, and the mode of
// analytics is not off.
bool analytics_reporting_ready();

// Writes the URL for reports of a kind. Returns 0, or the length of the URL when it does not fit.
int build_crash_report_url(char (&url)[kReportUrl], const char *kind);

// Begins a report: what is known of the unit, the output of a command that may be NULL, and the
// configuration if wanted. Owned; NULL when memory is short.
json_t *generate_common_payload(const char *crash_log_cmd, bool with_system_cfg);

// The report of the kernel's oops, whole; owned, NULL when memory is short.
json_t *generate_kernel_crash_payload();

// Posts a report. Where the answer is wanted it has to be JSON, and is owned. Returns 0 or -1.
int post_crash(const char *url, json_t *payload, json_t **response);

constexpr size_t kMostAnswered = 2048; // bytes kept of an answer; the service's are some 300

// Where the service wants the bytes of a dump, borrowed from its answer; NULL when it does not say.
const char *upload_url_of(const json_t *answer);

} // namespace zorv

#endif

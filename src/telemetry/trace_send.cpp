#include <zorv/trace.h>

#include <cstdio>

#include <jansson.h>
#include <zorv/curl_simple.h>

#include "core/log_gate.h"
#include "core/own.h"
#include "net/libcurl.h"
#include "net/response.h"
#include "telemetry/back_off.h"
#include "telemetry/cloud_service.h"
#include "telemetry/report_gate.h"
#include "telemetry/trace_envelope.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "trace";
constexpr long kAcceptedStatus = 202;
constexpr size_t kAnswer = 1024; // bytes of an answer that are worth logging

// Of all traces that the process sends.
constinit struct {
    TraceBackOff back_off;
    bool failure_logged;
} g_sender = {};

// 0, or the code of the gate that is shut.
int ask_gates()
{
    if (analytics_mode(kModule) == kOff)
        return TRACE_OFF;
    if (g_sender.back_off.has_stopped())
        return TRACE_STOPPED;
    if (g_sender.back_off.is_too_early(milliseconds_now()))
        return TRACE_BACK_OFF;
    return 0;
}

int put_trace(json_t *envelope)
{
    char url[256];
    snprintf(url, sizeof url, "%s/traces", kTraceService.origin());
    const Response response(curl_simple_response_init(kAnswer));
    if (!response) {
        log_error("Failed to allocate curl response");
        return -1;
    }
    const int code = curl_simple_put_json(url, 0, envelope, response.get());
    g_sender.back_off.note_attempt(milliseconds_now());
    if (code != CURLE_OK) {
        g_sender.back_off.note_failure();
        if (!g_sender.failure_logged)
            log_warning("PUT '%s' failed: [%d] %s", url, code, result_words(code));
        g_sender.failure_logged = true;
        return TRACE_FAILED;
    }
    g_sender.back_off.note_answer();
    if (response->status == kAcceptedStatus)
        return TRACE_ACCEPTED;
    log_verbose("PUT '%s' failed: [%ld] %s", url, response->status, loggable_body(*response));
    return TRACE_FAILED;
}

} // namespace

int send_traces(json_t *traces, json_t *meta)
{
    const int gate = ask_gates();
    if (gate != 0)
        return gate;
    if (!json_is_array(traces)) {
        log_verbose("Traces must be an array");
        return -1;
    }
    const Json envelope(json_object());
    if (!trace_envelope_object(envelope.get(), traces, meta)) {
        if (envelope) // otherwise it has been told
            log_verbose("Failed to create envelope");
        return -1;
    }
    return put_trace(envelope.get());
}

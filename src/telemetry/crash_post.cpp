// How reports leave the unit, and what is kept of them.
#include <jansson.h>
#include <zorv/crash.h>

#include <cstdio>
#include <cstring>

#include "core/json_text.h"
#include "core/log_gate.h"
#include "core/own.h"
#include "net/libcurl.h"
#include "telemetry/crash_report.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "crash";
constexpr char kKeptPayload[] = "/var/run/report_payload.txt";
constexpr char kKeptCommand[] = "/var/run/report_payload_cmd.txt";
constexpr size_t kMostKept = 102400; // bytes of a payload without its newline; /var/run is memory

} // namespace

void save_crash_payload(json_t *payload)
{
    const Text text = dump_json(payload, JSON_INDENT(2));
    if (!text) {
        log_error("Invalid payload");
        return;
    }
    const size_t length = strlen(text.get());
    if (length > kMostKept) {
        log_info("Skipped saving crash report payload because it was > 100KB (%d)",
                 static_cast<int>(length));
        return;
    }
    const File file(fopen(kKeptPayload, "we"));
    if (!file) {
        log_error("Failed opening file for saving crash report payload");
        return;
    }
    fprintf(file.get(), "%s\n", text.get());
    log_info("Saved crash report payload of %d bytes", static_cast<int>(length));
}

void save_crash_payload_cmd(const char *cmd)
{
    if (!cmd)
        return;
    const File file(fopen(kKeptCommand, "we"));
    if (!file) {
        log_error("Failed opening file for saving crash report payload command");
        return;
    }
    fprintf(file.get(), "%s\n", cmd);
}

const char *zorv::upload_url_of(const json_t *answer)
{
    return json_string_value(json_object_get(answer, "upload_url"));
}

int zorv::post_crash(const char *url, json_t *payload, json_t **response)
{
    const Response reply(curl_simple_response_init(kMostAnswered));
    if (!reply) {
        log_error("Failed to allocate curl response");
        return -1;
    }
    const int code = curl_simple_post_json(url, 0, payload, reply.get());
    if (code != 0) {
        log_warning("POST '%s' failed: [%d] %s", url, code, result_words(code));
        return -1;
    }
    save_crash_payload(payload);
    if (reply->status != 200) {
        log_warning("POST '%s' failed: [%ld] %s", url, reply->status, loggable_body(*reply));
        return -1;
    }
    if (!response)
        return 0;
    json_error_t error;
    *response = json_loads(body_text(*reply), 0, &error);
    if (*response)
        return 0;
    log_warning("Failed to parse response: %s at line %d, column %d", loggable(error.text),
                error.line, error.column);
    return -1;
}

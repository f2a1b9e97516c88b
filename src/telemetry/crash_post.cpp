// How reports leave the unit, and what is kept of them.
#include <zorv/crash.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <curl/curl.h>

#include "core/log_gate.h"
#include "core/own.h"
#include "net/json_request.h"
#include "telemetry/crash_report.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "crash";
constexpr char kKeptPayload[] = "/var/run/report_payload.txt";
constexpr char kKeptCommand[] = "/var/run/report_payload_cmd.txt";
constexpr size_t kMostKept = 102400; // bytes of a payload without its newline; /var/run is memory

// Leaves out the white space between the tokens of a JSON text, which makes its compact form; in
// place, if wanted.
void copy_compact(char *to, const char *from)
{
    bool in_string = false;
    for (; *from; ++from) {
        if (in_string && *from == '\\')
            *to++ = *from++; // what is escaped ends no string
        else if (*from == '"')
            in_string = !in_string;
        else if (!in_string && (*from == ' ' || *from == '\n'))
            continue;
        *to++ = *from;
    }
    *to = '\0';
}

} // namespace

ReportText zorv::dump_report(const json_t *report)
{
    Text kept(json_dumps(report, JSON_INDENT(2)));
    const size_t length = kept ? strlen(kept.get()) : 0;
    if (length > kMostKept) {
        copy_compact(kept.get(), kept.get());
        return {nullptr, std::move(kept), length};
    }
    Text posted(static_cast<char *>(kept ? malloc(length + 1) : nullptr));
    if (posted)
        copy_compact(posted.get(), kept.get());
    return {std::move(kept), std::move(posted), length};
}

void zorv::save_crash_payload(const char *text, size_t length)
{
    if (length == 0) {
        log_error("Invalid payload");
        return;
    }
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
    fwrite(text, 1, length, file.get());
    fputc('\n', file.get());
    log_info("Saved crash report payload of %d bytes", static_cast<int>(length));
}

void save_crash_payload(json_t *payload)
{
    const Text text(json_dumps(payload, JSON_INDENT(2)));
    save_crash_payload(text.get(), text ? strlen(text.get()) : 0);
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

const char *zorv::body_text(const curl_simple_response &response)
{
    buffer *const body = response.body;
    // The NUL has room behind a full answer: a buffer begins with more bytes than are ever kept.
    body->append(body, "", 1);
    return reinterpret_cast<const char *>(body->data(body));
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
    const ReportText text = dump_report(payload);
    const int code = post_json(url, 0, payload, text.posted.get(), reply.get());
    if (code != 0) {
        log_warning("POST '%s' failed: [%d] %s", url, code,
                    curl_easy_strerror(static_cast<CURLcode>(code)));
        return -1;
    }
    save_crash_payload(text.kept.get(), text.length);
    const char *const body = body_text(*reply);
    if (reply->status != 200) {
        log_warning("POST '%s' failed: [%ld] %s", url, reply->status, body);
        return -1;
    }
    if (!response)
        return 0;
    json_error_t error;
    *response = json_loads(body, 0, &error);
    if (*response)
        return 0;
    log_warning("Failed to parse response: %s at line %d, column %d", error.text, error.line,
                error.column);
    return -1;
}

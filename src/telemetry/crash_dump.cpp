// Binary dumps: their reports, and the upload of their bytes.
#include <zorv/crash.h>

#include <cstring>
#include <memory>

#include <jansson.h>
#include <zorv/format.h>

#include "core/log_gate.h"
#include "core/own.h"
#include "exec/shell.h"
#include "net/libcurl.h"
#include "telemetry/crash_report.h"
#include "telemetry/json_members.h"
#include "telemetry/report_gate.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "crash";
constexpr int kRamDump = 3;
constexpr char kTypes[][10] = {"core-dump", "app-crash", "oom-kill", "ram-dump"};

constexpr char kRamDumpLog[] =
    "logread | grep -i \"collecting ramdump\" -B 200 | syswrapper.sh sensitive-data-filter";
constexpr char kProcessLog[] =
    "tail -n 100 /var/log/messages | syswrapper.sh sensitive-data-filter";

const char *type_of(int dump_type)
{
    return dump_type >= 0 && dump_type < static_cast<int>(std::size(kTypes)) ? kTypes[dump_type]
                                                                             : "unknown";
}

// libcurl may know more: by "file:" an answer could have the unit's own files read into the log.
bool is_web_url(const char *url)
{
    return strncasecmp(url, "https://", strlen("https://")) == 0 ||
           strncasecmp(url, "http://", strlen("http://")) == 0;
}

int upload_file(const char *url, const char *data, int length)
{
    const Response reply(curl_simple_response_init(kMostAnswered));
    if (!reply) {
        log_error("Failed to allocate curl response");
        return -1;
    }
    const int code = is_web_url(url) ? curl_simple_put(url, 0, nullptr, data, length, reply.get())
                                     : CURLE_UNSUPPORTED_PROTOCOL;
    if (code != 0) {
        log_warning("PUT '%s' failed: [%d] %s", url, code, result_words(code));
        return -1;
    }
    if (reply->status != 200) {
        log_warning("PUT '%s' failed: [%ld] %s", url, reply->status, loggable_body(*reply));
        return -1;
    }
    return 0;
}

struct Process {
    const char *name;
    int pid, signal, crashes, uptime;
};

void add_process(Members &report, const Process &process)
{
    report.set_text("cmd", process.name);
    report.set("signal", json_integer(process.signal));
    report.set("number_of_crashes", json_integer(process.crashes));
    report.set("process_uptime", json_integer(process.uptime));
}

void capture_process_log(json_t *report, const Process &process)
{
    if (!is_plain_word(process.name)) {
        log_warning("The report has no process_stdout: the name of the process may hold A-Z a-z "
                    "0-9 . _ - only");
        return;
    }
    const Text command(malloc_printf("tail -n 100 /var/log/messages | grep -e \"%s\\[%d\\]\" | "
                                     "syswrapper.sh sensitive-data-filter",
                                     process.name, process.pid));
    json_object_capture_popen(report, "process_stdout", command.get());
}

} // namespace

int send_crash_binary_data(const char *name, int pid, int signal, int number_of_crashes,
                           int process_uptime, const char *data, int length, int dump_type)
{
    const bool may_upload = is_upload_allowed();
    const bool has_bytes = data && length > 0;
    const bool is_ram_dump = dump_type == kRamDump;
    if (!name)
        name = "";
    if (!analytics_reporting_ready())
        return -1;
    char url[kReportUrl];
    if (build_crash_report_url(url, "crash") != 0) {
        log_verbose("URL truncated"); // on purpose below debug, as for logs of the store
        return -1;
    }
    Json report(generate_common_payload(is_ram_dump ? kRamDumpLog : kProcessLog, is_ram_dump));
    if (!report) {
        log_error("Failed to generate core dump payload");
        return -1;
    }
    const Process process = {name, pid, signal, number_of_crashes, process_uptime};
    Members members(report.get(), {kModule, __func__});
    members.set_text("type", type_of(dump_type));
    members.set("upload", json_boolean(has_bytes && may_upload));
    if (is_ram_dump)
        members.set_text("dump_type", name);
    else
        add_process(members, process);
    if (!members.is_whole()) {
        log_error("Failed to generate core dump payload");
        return -1;
    }
    if (!is_ram_dump)
        capture_process_log(report.get(), process);

    json_t *parsed = nullptr;
    const int rc = post_crash(url, report.get(), has_bytes ? &parsed : nullptr);
    report.reset();
    const Json answer(parsed);
    if (rc != 0 || !has_bytes)
        return rc;
    if (!may_upload) {
        log_info("Binary dump upload disabled by system settings");
        return 0;
    }
    const char *const upload_url = upload_url_of(answer.get());
    if (!upload_url) {
        log_warning("No upload_url in response");
        return 0;
    }
    return upload_file(upload_url, data, length);
}

int send_ram_dump(const char *name, const char *data, int length)
{
    return send_crash_binary_data(name, 0, 0, 0, 0, data, length, kRamDump);
}

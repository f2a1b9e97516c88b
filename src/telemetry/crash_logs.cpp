// What is done with the crash logs of the store: delivered to the service, handed to the local
// management, marked.
#include <jansson.h>
#include <zorv/crash.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <zorv/json.h>

#include "core/log_gate.h"
#include "exec/shell.h"
#include "telemetry/crash_report.h"
#include "telemetry/crash_store.h"
#include "telemetry/json_members.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "crash";
constexpr char kLogText[] = "crash_log"; // of a payload while it is delivered

constexpr char kUnpack[] = "tar -xOzf %s%s | syswrapper.sh sensitive-data-filter";

int add_uplink_model(CrashLogWalk &walk, json_t *payload)
{
    Members members(payload, {kModule, __func__});
    members.set_text("uplink_model", walk.uplink_model ? walk.uplink_model : "unknown");
    return members.is_whole() ? 0 : EINVAL;
}

// The store's only family.
CrashLogWalk walk_vwire_disconnect_logs(void (*act)(CrashLogWalk &))
{
    return {.family = "vwire_disconnect",
            .log_dir = kLogs,
            .sent_dir = kMarkers,
            .meta_dir = kMetas,
            .add_extra = add_uplink_model,
            .act = act};
}

void keep_delivered(CrashLogWalk &walk)
{
    json_object_set_new(walk.meta.get(), kToService, json_true());
    walk.flags |= kMetaChanged;
}

void send_vwire_disconnect_log(CrashLogWalk &walk)
{
    if (is_set(walk.meta.get(), kToService))
        return;
    char url[kReportUrl];
    if (build_crash_report_url(url, "crash") != 0) {
        walk.error = ENOMEM;
        log_verbose("URL truncated"); // on purpose below debug: every log would say it again
        return;
    }
    if (!is_plain_word(walk.name)) {
        log_warning("A %s log is passed over: its name may hold A-Z a-z 0-9 . _ - only",
                    walk.family);
        return;
    }
    if (!reserve_outcome(walk)) // or it would be delivered again and again
        return;
    log_info("Processing %s log %s", walk.family, walk.name);

    char unpack[sizeof kLogs + NAME_MAX + sizeof kUnpack];
    snprintf(unpack, sizeof unpack, kUnpack, walk.log_dir, walk.name);
    if (json_object_capture_popen(walk.payload, kLogText, unpack) != 0) {
        log_error("Capturing %s log %s failed\n", walk.family, walk.name);
        save_crash_payload_cmd(unpack);
        json_t *const instead = json_string("Error generating crash_log payload");
        if (json_object_set_new(walk.payload, kLogText, instead) != 0) {
            log_error("Payload %s is invalid\n", walk.family);
            return;
        }
    }
    const bool delivered = post_crash(url, walk.payload, nullptr) == 0;
    json_object_del(walk.payload, kLogText); // the meta never keeps it

    if (delivered) {
        keep_delivered(walk);
        log_info("Recorded %s log %s\n", walk.family, walk.name);
    } else if (count_failure(walk.meta.get()) >= kMostAttempts) {
        keep_delivered(walk);
        log_info("Failed to record %s log %s after %d attempts\n", walk.family, walk.name,
                 kMostAttempts);
    } else {
        walk.flags |= kMetaCounted;
        log_error("Recording %s log %s failed\n", walk.family, walk.name);
    }
}

void stop_at_unfinished_log(CrashLogWalk &walk)
{
    if (!is_set(walk.meta.get(), kToNet))
        walk.flags |= kStop;
}

void gather_first_vwire_disconnect_log(CrashLogWalk &walk)
{
    if (is_set(walk.meta.get(), kToNet))
        return;
    walk.flags |= kStop;
    Json found(json_deep_copy(walk.meta.get()));
    if (!found) {
        walk.error = ENOMEM;
        return;
    }
    Fd fd = open_in_store(walk, walk.log_dir, O_RDONLY);
    const File log(fd ? fdopen(fd.get(), "r") : nullptr);
    if (!log) {
        walk.error = errno;
        log_warning("Unable to open %s%s", walk.log_dir, walk.name);
        return;
    }
    static_cast<void>(fd.release()); // the stream has it
    // Without its bytes the log would be finished and lost.
    if (json_object_load_file_base64(found.get(), "file_data", log.get()) == 0)
        walk.result = std::move(found);
    else
        walk.error = ENOMEM;
}

void mark_crash_log_sent_to_net(CrashLogWalk &walk)
{
    if (!walk.finish_filename) {
        log_error("Missing finish_filename");
        walk.error = EINVAL;
        walk.flags |= kStop;
        return;
    }
    if (strcmp(walk.finish_filename, walk.name) != 0)
        return;
    if (!is_set(walk.meta.get(), kToNet)) {
        if (json_object_set_new(walk.meta.get(), kToNet, json_true()) != 0)
            walk.error = ENOMEM;
        walk.flags |= kMetaChanged;
    }
    walk.flags |= kStop;
}

} // namespace

int check_vwire_disconnect_logs(const char *uplink_model, int send)
{
    CrashLogWalk walk = walk_vwire_disconnect_logs(send ? send_vwire_disconnect_log : nullptr);
    walk.uplink_model = uplink_model;
    return iterate_crash_logs(walk);
}

int has_crash_logs()
{
    CrashLogWalk walk = walk_vwire_disconnect_logs(stop_at_unfinished_log);
    return iterate_crash_logs(walk) == 0 && walk.flags & kStop ? 1 : 0;
}

json_t *get_next_crash_log()
{
    CrashLogWalk walk = walk_vwire_disconnect_logs(gather_first_vwire_disconnect_log);
    iterate_crash_logs(walk);
    return walk.result.release();
}

int mark_crash_log_finished(const char *filename)
{
    CrashLogWalk walk = walk_vwire_disconnect_logs(mark_crash_log_sent_to_net);
    walk.finish_filename = filename;
    return iterate_crash_logs(walk) == 0 && walk.error == 0 && walk.flags & kStop ? 1 : 0;
}

// crash_store.h - one walk over a store of crash logs, for which each log is locked in turn.
#ifndef ZORV_TELEMETRY_CRASH_STORE_H
#define ZORV_TELEMETRY_CRASH_STORE_H

#include <jansson.h>

#include "core/own.h"
#include "telemetry/back_off.h"

namespace zorv {

inline constexpr char kLogs[] = "/etc/persistent/isolation_logs/";
inline constexpr char kMetas[] = "/etc/persistent/isolation_logs/meta/";
inline constexpr char kMarkers[] = "/etc/persistent/isolation_logs_sent/";

// Members of a meta.
inline constexpr char kToService[] = "sent_to_analytics", kToNet[] = "sent_to_net";
inline constexpr char kAttemptCount[] = "send_attempts";

enum CrashLogFlag : unsigned {
    kSaveConfig = 1,  // something changed that is worth a write to flash
    kMetaChanged = 2, // rewrite the meta, and save the configuration
    kMetaCounted = 4, // rewrite the meta alone: a failed delivery is not worth flash
    kStop = 8,        // the log at hand is the last one
};

struct CrashLogWalk {
    const char *family;
    const char *log_dir, *sent_dir, *meta_dir;             // each ends in a slash
    int (*add_extra)(CrashLogWalk &walk, json_t *payload); // of a new meta; 0 or an errno
    void (*act)(CrashLogWalk &walk);                       // on the log at hand

    const char *finish_filename = nullptr; // what act may look for
    const char *uplink_model = nullptr;    // what add_extra may add
    unsigned flags = 0;
    int error = 0; // an errno, of the last log; 0 when all of it worked and is stored

    // The log at hand.
    const char *name = nullptr;
    Fd meta_file{}; // locked while it is open
    Json meta{};
    json_t *payload = nullptr; // borrowed from the meta

    Json result{}; // what act found
};

// Has each log that is not marked as sent pass through walk.act, its meta locked and read. Either
// function of the walk may be NULL. Returns 0, or -1 when a directory cannot be made.
int iterate_crash_logs(CrashLogWalk &walk);

// Opens the log at hand, or what is kept of it, in one of these folders. A link is none of the
// store's files: it may lead to a pipe, whose writer never comes, or to a file of somebody else.
Fd open_in_store(const CrashLogWalk &walk, const char *folder, int flags);

// Takes the room in the file system that the outcome of a delivery may need. Without it, false and
// walk.error, nothing of the log at hand is stored.
bool reserve_outcome(CrashLogWalk &walk);

// Whether a member of a meta is true; 1 and "true" are not.
bool is_set(const json_t *meta, const char *member);

// Counts a delivery that failed. Returns how many there have been.
long count_failure(json_t *meta);

// Reads what is known of the log at hand, or makes it for a log that is new.
void prepare_crash_log_meta(CrashLogWalk &walk);

// Stores what has changed of it, marks the log if the local management has it, and lets go of it.
void finish_crash_meta(CrashLogWalk &walk);

} // namespace zorv

#endif

// The walk over a store of crash logs.
#include "telemetry/crash_store.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <stdio_ext.h>
#include <sys/stat.h>
#include <zorv/crash.h>
#include <zorv/file.h>
#include <zorv/format.h>
#include <zorv/json.h>

#include "core/log_gate.h"
#include "telemetry/crash_report.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "crash";
constexpr char kPersistent[] = "/etc/persistent";
constexpr int kAttempts = 10; // at a lock, a second apart

// Another process may make the same directory at the same time: then it is there.
bool make_dir(const char *path)
{
    return vq_mkdir_p(path, 0755) == 0 || (errno == EEXIST && vq_mkdir_p(path, 0755) == 0);
}

// Directories are no logs, nor are pipes: who reads one waits for its writer, for good perhaps.
bool is_log(int dir_fd, const dirent &entry)
{
    if (entry.d_type != DT_UNKNOWN)
        return entry.d_type != DT_DIR && entry.d_type != DT_FIFO;
    struct stat info; // some file systems do not tell
    return fstatat(dir_fd, entry.d_name, &info, AT_SYMLINK_NOFOLLOW) != 0 ||
           !(S_ISDIR(info.st_mode) || S_ISFIFO(info.st_mode));
}

bool is_regular(FILE *file)
{
    struct stat info;
    return fstat(fileno(file), &info) == 0 && S_ISREG(info.st_mode);
}

bool has_marker(const Fd &sent_dir, const char *name)
{
    return faccessat(sent_dir.get(), name, F_OK, 0) == 0;
}

// Tries once to open the meta of the log at hand and to lock it. The directory is locked meanwhile,
// so that no two processes come between the two. Returns 0, also when another process has either;
// or why the meta cannot be opened: EINVAL for a pipe or a device, which may have no end.
int try_to_hold_meta(CrashLogWalk &walk, int dir_fd)
{
    if (flock(dir_fd, LOCK_EX | LOCK_NB) != 0)
        return 0;
    File meta(fopen_format("a+e", "%s%s", walk.meta_dir, walk.name));
    const int error = !meta ? errno : is_regular(meta.get()) ? 0 : EINVAL;
    if (error == 0 && flock(fileno(meta.get()), LOCK_EX | LOCK_NB) == 0)
        walk.meta_file = std::move(meta);
    flock(dir_fd, LOCK_UN);
    return error;
}

// Waits for other processes. Returns 0 with the meta held, or an errno: EBUSY after the last try.
int hold_meta(CrashLogWalk &walk, int dir_fd)
{
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const int error = try_to_hold_meta(walk, dir_fd);
        if (error != 0 || walk.meta_file)
            return error;
        sleep(1);
    }
    return EBUSY;
}

// The meta of a new log. "send_attempts" is not in it: it is stored with the first failure.
bool make_meta(CrashLogWalk &walk)
{
    walk.meta.reset(json_object());
    if (!walk.meta)
        return false;
    json_t *const meta = walk.meta.get();
    json_object_set_new(meta, "filename", json_string(walk.name));
    json_object_set_new(meta, kToService, json_false());
    walk.payload = generate_common_payload(nullptr, false);
    if (json_object_set_new(meta, "payload", walk.payload) != 0) {
        walk.payload = nullptr; // released
        return false;
    }
    return json_object_set_new(walk.payload, "type", json_string(walk.family)) == 0;
}

// Emptied first: a meta that is cut short by a full disk, or by the end of the process, is no JSON,
// and the log is new to whoever comes next.
bool rewrite_meta(FILE *file, const json_t *meta)
{
    if (ftruncate(fileno(file), 0) != 0)
        return false;
    rewind(file);
    if (json_dumpf(meta, file, 0) == 0 && fflush(file) == 0)
        return true;
    __fpurge(file); // or closing would write it, when the next process may have the meta
    return false;
}

void make_marker(CrashLogWalk &walk)
{
    const File marker(fopen_format("we", "%s%s", walk.sent_dir, walk.name));
    if (marker && is_dir_in_persistent(walk.sent_dir))
        walk.flags |= kSaveConfig;
}

} // namespace

int is_dir_in_persistent(const char *path)
{
    // On purpose no slash behind it: scripts that save the configuration compare as much.
    return path && strncmp(path, kPersistent, strlen(kPersistent)) == 0 ? 1 : 0;
}

bool zorv::is_set(const json_t *meta, const char *member)
{
    return json_is_true(json_object_get(meta, member));
}

long zorv::count_failure(json_t *meta)
{
    zorv_json_add_long(meta, kAttemptCount, 1);
    return zorv_json_read_long(meta, kAttemptCount, 0);
}

void zorv::prepare_crash_log_meta(CrashLogWalk &walk)
{
    rewind(walk.meta_file.get());
    walk.meta.reset(json_loadf(walk.meta_file.get(), 0, nullptr));
    if (walk.meta) {
        walk.payload = json_object_get(walk.meta.get(), "payload");
        walk.error = walk.payload ? 0 : ENODATA;
    } else if (!make_meta(walk)) {
        walk.meta.reset(); // without a payload it would be stored for good
        walk.payload = nullptr;
        walk.error = ENOMEM;
    } else {
        walk.error = walk.add_extra ? walk.add_extra(walk, walk.payload) : 0;
        if (walk.error != 0)
            log_error("Failed to add extra payload");
        else
            walk.flags |= kMetaChanged;
    }
    if (walk.error != 0)
        log_error("Failed to generate %s meta: %s", walk.family, strerror(walk.error));
}

void zorv::finish_crash_meta(CrashLogWalk &walk)
{
    if (walk.error != 0)
        log_warning("Couldn't process %s: %s", walk.family, strerror(walk.error));
    if (is_set(walk.meta.get(), kToNet))
        make_marker(walk);
    if (walk.flags & (kMetaChanged | kMetaCounted) && walk.meta_file && walk.meta) {
        walk.flags &= ~kMetaChanged;
        if (rewrite_meta(walk.meta_file.get(), walk.meta.get())) {
            if (!(walk.flags & kMetaCounted) && is_dir_in_persistent(walk.meta_dir))
                walk.flags |= kSaveConfig;
            // On purpose it stays after a failure: a disk that is full is not asked to take the
            // configuration for the sake of the next log.
            walk.flags &= ~kMetaCounted;
        } else {
            log_error("Cannot save %s %s%s meta file", walk.family, walk.meta_dir, walk.name);
        }
    }
    walk.payload = nullptr;
    walk.meta.reset();
    if (walk.meta_file)
        flock(fileno(walk.meta_file.get()), LOCK_UN);
    walk.meta_file.reset();
}

int zorv::iterate_crash_logs(CrashLogWalk &walk)
{
    walk.result.reset();
    walk.flags &= ~(kSaveConfig | kStop);
    Dir logs(opendir(walk.log_dir));
    if (!logs)
        return 0;
    for (const char *const path : {walk.sent_dir, walk.meta_dir}) {
        if (make_dir(path))
            continue;
        log_error("couldn't make dir %s: %s", path, strerror(errno));
        return -1;
    }
    const Fd sent_dir(open(walk.sent_dir, O_PATH | O_DIRECTORY | O_CLOEXEC));
    const int log_dir = dirfd(logs.get());
    while (!(walk.flags & kStop)) {
        const dirent *const entry = readdir(logs.get());
        if (!entry)
            break;
        if (!is_log(log_dir, *entry) || has_marker(sent_dir, entry->d_name))
            continue;
        walk.name = entry->d_name;
        walk.flags &= ~kMetaChanged;
        walk.error = hold_meta(walk, log_dir);
        if (walk.meta_file)
            prepare_crash_log_meta(walk);
        else if (walk.error != EBUSY)
            log_error("Couldn't open %s%s %s", walk.meta_dir, walk.name, strerror(walk.error));
        if (walk.error == 0 && walk.act)
            walk.act(walk);
        finish_crash_meta(walk);
    }
    logs.reset();
    if (walk.flags & kSaveConfig)
        run_shell("syswrapper.sh save-config");
    return 0;
}

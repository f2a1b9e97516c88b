// The walk over a store of crash logs.
#include "telemetry/crash_store.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <zorv/crash.h>
#include <zorv/file.h>
#include <zorv/format.h>
#include <zorv/json.h>

#include "core/json_text.h"
#include "core/log_gate.h"
#include "core/pause.h"
#include "exec/shell.h"
#include "telemetry/crash_report.h"
#include "telemetry/json_members.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "crash";
constexpr char kPersistent[] = "/etc/persistent";
constexpr int kAttempts = 10;      // at a lock, a second apart
constexpr size_t kStorePath = 512; // a folder of the store and a name of at most 255 bytes

// Bytes by which a delivery may lengthen a meta: its two members for that, a number of 19 digits.
constexpr size_t kOutcome = 80;

// Another process may make the same directory at the same time: then it is there.
bool make_dir(const char *path)
{
    return vq_mkdir_p(path, 0755) == 0 || (errno == EEXIST && vq_mkdir_p(path, 0755) == 0);
}

// Directories are no logs, nor is anything else that is no file, see open_in_store().
bool is_log(int dir_fd, const dirent &entry)
{
    if (entry.d_type != DT_UNKNOWN)
        return entry.d_type == DT_REG;
    struct stat info; // some file systems do not tell
    return fstatat(dir_fd, entry.d_name, &info, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(info.st_mode);
}

bool is_regular(int fd)
{
    struct stat info;
    return fstat(fd, &info) == 0 && S_ISREG(info.st_mode);
}

bool has_marker(const Fd &sent_dir, const char *name)
{
    struct stat info;
    return fstatat(sent_dir.get(), name, &info, AT_SYMLINK_NOFOLLOW) == 0;
}

// Tries once to open the meta of the log at hand and to lock it. The directory is locked meanwhile,
// so that no two processes come between the two. Returns 0, also when another process has either;
// or why the meta cannot be opened: EINVAL for a pipe or a device, which may have no end.
int try_to_hold_meta(CrashLogWalk &walk, int dir_fd)
{
    if (flock(dir_fd, LOCK_EX | LOCK_NB) != 0)
        return 0;
    Fd meta = open_in_store(walk, walk.meta_dir, O_RDWR | O_CREAT);
    const int error = !meta ? errno : is_regular(meta.get()) ? 0 : EINVAL;
    if (error == 0)
        walk.meta_file = locked(std::move(meta));
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
        pause_for(1);
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
    Members members(meta, {kModule, __func__});
    members.set_text("filename", walk.name);
    members.set(kToService, json_false());
    members.set("payload", generate_common_payload(nullptr, false));
    walk.payload = json_object_get(meta, "payload");
    Members payload(walk.payload, {kModule, __func__});
    payload.set_text("type", walk.family);
    return members.is_whole() && payload.is_whole();
}

// The bytes of a file; empty, with errno, when they cannot all be had.
Text read_whole(int fd, size_t &length)
{
    struct stat info;
    if (fstat(fd, &info) != 0)
        return nullptr;
    const auto size = static_cast<size_t>(info.st_size);
    Text text(static_cast<char *>(malloc(size + 1)));
    ssize_t count = text ? 1 : -1;
    for (length = 0; count > 0 && length<size; length += count> 0 ? static_cast<size_t>(count) : 0)
        count = TEMP_FAILURE_RETRY(
            pread(fd, text.get() + length, size - length, static_cast<off_t>(length)));
    return count < 0 ? nullptr : std::move(text);
}

bool is_short_of_memory(const json_error_t &error)
{
    const enum json_error_code code = json_error_code(&error);
    return code == json_error_unknown || code == json_error_out_of_memory;
}

// Parses a meta, which stays empty for a text that is no JSON. False when memory is short, which
// jansson may tell as a slip in the text, or not at all: it drops characters then. So the text is
// read twice, and counts when both agree.
bool parse_meta(const char *text, size_t length, Json &meta)
{
    json_error_t error, again_error;
    meta.reset(json_loadb(text, length, 0, &error));
    const Json again(json_loadb(text, length, 0, &again_error));
    if (meta || again)
        return json_equal(meta.get(), again.get()) == 1;
    return !is_short_of_memory(error) && !is_short_of_memory(again_error);
}

// Reads the meta at hand; it stays empty for a file that was read whole and holds no JSON. Returns
// 0 or an errno.
int load_meta(CrashLogWalk &walk)
{
    size_t length = 0;
    const Text text = read_whole(walk.meta_file.get(), length);
    if (!text)
        return errno;
    if (parse_meta(text.get(), length, walk.meta))
        return 0;
    walk.meta.reset();
    return ENOMEM;
}

bool write_at(int fd, const char *text, size_t length, size_t offset)
{
    while (length > 0) {
        const ssize_t count =
            TEMP_FAILURE_RETRY(pwrite(fd, text, length, static_cast<off_t>(offset)));
        if (count < 0)
            return false;
        text += count;
        length -= static_cast<size_t>(count);
        offset += static_cast<size_t>(count);
    }
    return true;
}

// Cuts a file back to what it held before a write failed.
void cut_back(int fd, size_t size)
{
    const int saved = errno;
    static_cast<void>(!ftruncate(fd, static_cast<off_t>(size)));
    errno = saved;
}

// Writes what of the text is behind the end of the file, so that what overwrites the file's bytes
// afterwards fits. On a file system that is full the file stays as it was.
bool write_tail(int fd, const char *text, size_t length, size_t &size)
{
    struct stat info;
    if (fstat(fd, &info) != 0)
        return false;
    size = static_cast<size_t>(info.st_size);
    if (length <= size || write_at(fd, text + size, length - size, size))
        return true;
    cut_back(fd, size);
    return false;
}

// A meta that is cut short by the end of the process is no JSON, and the log is new to whoever
// comes next.
bool rewrite_meta(int fd, const char *text)
{
    const size_t length = strlen(text);
    size_t size;
    if (!write_tail(fd, text, length, size))
        return false;
    if (write_at(fd, text, std::min(length, size), 0))
        return length >= size || ftruncate(fd, static_cast<off_t>(length)) == 0;
    cut_back(fd, size); // without a tail of another text
    return false;
}

// False, and walk.error, when it cannot be stored.
bool save_meta(CrashLogWalk &walk)
{
    walk.flags &= ~kMetaChanged;
    const Text text = dump_json(walk.meta.get(), 0);
    if (!text || !rewrite_meta(walk.meta_file.get(), text.get())) {
        walk.error = text ? errno : ENOMEM;
        return false;
    }
    if (!(walk.flags & kMetaCounted) && is_dir_in_persistent(walk.meta_dir))
        walk.flags |= kSaveConfig;
    // On purpose it stays after a failure: a disk that is full is not asked to take the
    // configuration for the sake of the next log.
    walk.flags &= ~kMetaCounted;
    return true;
}

void make_marker(CrashLogWalk &walk)
{
    if (!open_in_store(walk, walk.sent_dir, O_WRONLY | O_CREAT | O_TRUNC)) {
        walk.error = errno;
        log_error("Couldn't make %s%s: %s", walk.sent_dir, walk.name, strerror(walk.error));
    } else if (is_dir_in_persistent(walk.sent_dir)) {
        walk.flags |= kSaveConfig;
    }
}

} // namespace

int is_dir_in_persistent(const char *path)
{
    // On purpose no slash behind it; kept for callers built against it.
    return path && strncmp(path, kPersistent, strlen(kPersistent)) == 0 ? 1 : 0;
}

bool zorv::is_set(const json_t *meta, const char *member)
{
    return json_is_true(json_object_get(meta, member));
}

long zorv::count_failure(json_t *meta)
{
    if (zorv_json_read_long(meta, kAttemptCount, 0) < LONG_MAX) // a damaged meta's does not wrap
        zorv_json_add_long(meta, kAttemptCount, 1);
    return zorv_json_read_long(meta, kAttemptCount, 0);
}

Fd zorv::open_in_store(const CrashLogWalk &walk, const char *folder, int flags)
{
    char path[kStorePath];
    snprintf(path, sizeof path, "%s%s", folder, walk.name);
    return Fd(open(path, flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0666));
}

bool zorv::reserve_outcome(CrashLogWalk &walk)
{
    const Text text = dump_json(walk.meta.get(), 0);
    const size_t length = text ? strlen(text.get()) + kOutcome : 0;
    const Text blanks(static_cast<char *>(text ? malloc(length) : nullptr));
    if (blanks)
        memset(blanks.get(), ' ', length); // JSON as before for who reads it meanwhile
    size_t size;
    if (blanks && write_tail(walk.meta_file.get(), blanks.get(), length, size))
        return true;
    walk.error = blanks ? errno : ENOMEM;
    walk.meta_file.reset();
    return false;
}

void zorv::prepare_crash_log_meta(CrashLogWalk &walk)
{
    walk.error = load_meta(walk);
    if (walk.meta) {
        walk.payload = json_object_get(walk.meta.get(), "payload");
        walk.error = walk.payload ? 0 : ENODATA;
    } else if (walk.error == 0 && !make_meta(walk)) {
        walk.meta.reset(); // without a payload it would be stored for good
        walk.payload = nullptr;
        walk.error = ENOMEM;
    } else if (walk.error == 0) {
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
    const bool has_changed =
        walk.flags & (kMetaChanged | kMetaCounted) && walk.meta_file && walk.meta;
    // The marker comes behind the meta: no call looks at a log again that has one.
    if (has_changed && !save_meta(walk))
        log_error("Cannot save %s %s%s meta file", walk.family, walk.meta_dir, walk.name);
    else if (is_set(walk.meta.get(), kToNet))
        make_marker(walk);
    walk.payload = nullptr;
    walk.meta.reset();
    if (walk.meta_file)
        flock(walk.meta_file.get(), LOCK_UN);
    walk.meta_file.reset();
}

int zorv::iterate_crash_logs(CrashLogWalk &walk)
{
    walk.result.reset();
    walk.flags &= ~(kSaveConfig | kStop);
    Dir logs(opendir(walk.log_dir));
    if (!logs) {
        if (errno != ENOENT)
            log_error("Couldn't open %s: %s", walk.log_dir, strerror(errno));
        return 0;
    }
    for (const char *const path : {walk.sent_dir, walk.meta_dir}) {
        if (make_dir(path))
            continue;
        log_error("couldn't make dir %s: %s", path, strerror(errno));
        return -1;
    }
    const Fd sent_dir(open(walk.sent_dir, O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!sent_dir) { // what is finished would pass for unfinished
        log_error("Couldn't open %s: %s", walk.sent_dir, strerror(errno));
        return 0;
    }
    const int log_dir = dirfd(logs.get());
    while (!(walk.flags & kStop)) {
        errno = 0;
        const dirent *const entry = readdir(logs.get());
        if (!entry && errno != 0)
            log_error("Couldn't read %s: %s", walk.log_dir, strerror(errno));
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
    if (walk.flags & kSaveConfig && run_shell("syswrapper.sh save-config") != 0)
        log_error("Couldn't save the configuration");
    return 0;
}

#include "telemetry/ps_fds.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/log_gate.h"
#include "core/own.h"
#include "core/text_tools.h"
#include "telemetry/ps_sockets.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "libzorv_proc";
constexpr size_t kTarget = 386; // a link as long as this may have been cut and is left out
constexpr int32_t kUnreadable = -1;
constexpr int32_t kFailed = -2;
constexpr int32_t kDots = 2; // "." and ".." are no descriptors

// The "[" behind the first ":", when "]" comes behind it, too; else NULL.
const char *find_bracket(const char *target)
{
    const char *const colon = strchr(target, ':');
    const char *const open = colon ? strchr(colon, '[') : nullptr;
    return open && strchr(open, ']') ? open : nullptr;
}

// Reads the link; false when it cannot be read or is too long.
bool resolve_fd_path(int fds, int32_t pid, const char *name, char (&target)[kTarget + 1])
{
    const ssize_t length = readlinkat(fds, name, target, kTarget);
    if (length < 0) {
        log_warning("Failed to readlink '/proc/%d/fd/%s': %s", pid, name, strerror(errno));
        return false;
    }
    target[length] = '\0';
    if (length < static_cast<ssize_t>(kTarget))
        return true;
    log_error("Resolved path truncated '/proc/%d/fd/%s ->  %s'", pid, name, target);
    return false;
}

// A record of a descriptor that is in no list yet; NULL when memory is short.
zorv_fd_record *make_fd(uint32_t kind, const char *target, const zorv_socket_cache *sockets)
{
    const auto record = static_cast<zorv_fd_record *>(calloc(1, sizeof(zorv_fd_record)));
    Text link(record && kind != ZORV_FD_SOCKET ? duplicate(target) : nullptr);
    if (!record || (kind != ZORV_FD_SOCKET && !link)) {
        free(record);
        return nullptr;
    }
    record->kind = kind;
    if (kind == ZORV_FD_SOCKET)
        record->target.socket = find_socket(sockets, target_inode(target));
    else
        record->target.link = link.release();
    return record;
}

// From Linux 6.2 on, the size of the directory is the number of descriptors, which spares the
// kernel an inode for each; before, and without any, it is 0.
int32_t size_of(int fds)
{
    struct stat info;
    return fstat(fds, &info) == 0 ? static_cast<int32_t>(info.st_size) : 0;
}

void append(zorv_fd_list &fds, zorv_fd_record *record)
{
    record->prev = fds.last;
    (fds.last ? fds.last->next : fds.first) = record;
    fds.last = record;
}

} // namespace

uint32_t zorv::classify_target(const char *target)
{
    if (!find_bracket(target))
        return ZORV_FD_FILE;
    switch (target[0]) {
    case 'p':
        return ZORV_FD_PIPE;
    case 'a':
        return ZORV_FD_ANON;
    case 's':
        return ZORV_FD_SOCKET;
    default:
        return ZORV_FD_UNKNOWN;
    }
}

uint32_t zorv::target_inode(const char *target)
{
    const char *const bracket = find_bracket(target);
    return bracket ? static_cast<uint32_t>(strtoul(bracket + 1, nullptr, 10)) : 0;
}

void zorv::walk_process_fds(const Walk &walk, zorv_ps_record &record)
{
    char path[sizeof "-2147483648/fd"];
    snprintf(path, sizeof path, "%d/fd", record.pid);
    Fd fds(openat(walk.proc, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fds && walk.is_procfs && !walk.with_fds && (record.fd_count = size_of(fds.get())) > 0)
        return;
    const Dir entries(fds ? fdopendir(fds.get()) : nullptr);
    if (!entries) {
        log_error("Failed to open '/proc/%s': %s", path, strerror(errno));
        record.fd_count = kUnreadable;
        return;
    }
    const int dir_fd = fds.release(); // the directory's from here
    record.fd_count = -kDots;
    char target[kTarget + 1];
    while (const dirent *const entry = next_entry(entries.get())) {
        ++record.fd_count;
        if (!walk.with_fds || entry->d_type != DT_LNK ||
            !resolve_fd_path(dir_fd, record.pid, entry->d_name, target))
            continue;
        const uint32_t kind = classify_target(target);
        if (kind == ZORV_FD_UNKNOWN)
            log_warning("Unknown FD type '%s'", target);
        else if (zorv_fd_record *const fd = make_fd(kind, target, walk.sockets))
            append(record.fds, fd);
        else
            log_error("Failed to alloc FD");
    }
    if (errno != 0) {
        log_error("Failed to read '/proc/%s': %s", path, strerror(errno));
        record.fd_count = kFailed;
    }
}

void zorv::free_fds(zorv_fd_list &fds)
{
    for (zorv_fd_record *record = fds.first; record;) {
        zorv_fd_record *const next = record->next;
        if (record->kind != ZORV_FD_SOCKET)
            free(record->target.link);
        free(record);
        record = next;
    }
    fds = {};
}

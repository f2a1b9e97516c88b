#include <zorv/ps.h>

#include <bit>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/vfs.h>
#include <unistd.h>

#include "core/lines.h"
#include "core/log_gate.h"
#include "core/text_tools.h"
#include "telemetry/ps_list.h"
#include "telemetry/ps_sockets.h"
#include "telemetry/ps_stat.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "libzorv_proc";
constexpr char kProc[] = "/proc";
constexpr size_t kBlock = 1024; // what is read of a stat line and of a command line

// The path of a process's file, below /proc.
struct ProcPath {
    char text[sizeof "-2147483648/cmdline"];
};

ProcPath proc_path(int32_t pid, const char *name)
{
    ProcPath path;
    snprintf(path.text, sizeof path.text, "%d/%s", pid, name);
    return path;
}

// The first line of /proc/PID/stat; "" when it cannot be read. The kernel hands it out at once.
void read_stat(const Walk &walk, int32_t pid, char (&line)[kBlock])
{
    const ProcPath path = proc_path(pid, "stat");
    const Fd fd(openat(walk.proc, path.text, O_RDONLY | O_CLOEXEC));
    const ssize_t length = fd ? read(fd.get(), line, sizeof line - 1) : -1;
    if (length < 0 && errno != ENOENT && errno != ESRCH) // of a process that has ended
        log_error("Failed to read '/proc/%s': %s", path.text, strerror(errno));
    line[length > 0 ? length : 0] = '\0';
    cut_at(line, "\n");
}

Text fread_cmdline(const Walk &walk, int32_t pid)
{
    const ProcPath path = proc_path(pid, "cmdline");
    const Fd fd(openat(walk.proc, path.text, O_RDONLY | O_CLOEXEC));
    if (!fd) {
        log_error("Failed to open '/proc/%s': %s", path.text, strerror(errno));
        return nullptr;
    }
    char block[kBlock];
    const ssize_t length = read(fd.get(), block, sizeof block);
    if (length < 0)
        log_error("Failed to read '/proc/%s'", path.text);
    if (length <= 0) // a kernel thread or a zombie has none
        return nullptr;

    // On purpose: the last byte goes, whatever it is; see the header.
    const size_t used = static_cast<size_t>(length) - 1;
    for (size_t i = 0; i < used; ++i) {
        if (block[i] == '\0')
            block[i] = ' ';
    }
    Text cmdline = duplicate({block, used});
    if (!cmdline)
        log_malloc_failed(used + 1);
    return cmdline;
}

Record make_record(const Walk &walk, int32_t pid, const ProcStat &stat)
{
    Record record(static_cast<zorv_ps_record *>(calloc(1, sizeof(zorv_ps_record))));
    if (record)
        record->comm = duplicate(stat.comm).release();
    if (!record || !record->comm)
        return nullptr;
    record->pid = pid;
    record->state = stat.state;
    record->ppid = stat.ppid;
    record->vsz = stat.vsize >> 10;
    record->rss = static_cast<int64_t>(static_cast<uint64_t>(stat.rss) << walk.page_shift);
    return record;
}

// All there is to know of a process; empty when it has ended.
Record read_process(const Walk &walk, int32_t pid)
{
    char line[kBlock];
    read_stat(walk, pid, line);
    ProcStat stat;
    if (!parse_stat(line, stat))
        return nullptr;
    Record record = make_record(walk, pid, stat);
    if (!record) {
        log_malloc_failed(sizeof(zorv_ps_record));
        return nullptr;
    }
    record->cmdline = fread_cmdline(walk, pid).release();
    walk_process_fds(walk, *record);
    return record;
}

PsList zorv_ps_list_init()
{
    PsList list(static_cast<zorv_ps_list *>(calloc(1, sizeof(zorv_ps_list))));
    if (!list)
        log_error("Failed to allocate memory for zorv_ps_list");
    else
        list->first = list->last = end_of(*list);
    return list;
}

bool is_procfs(int fd)
{
    struct statfs info;
    return fstatfs(fd, &info) == 0 && info.f_type == PROC_SUPER_MAGIC;
}

// The process that a directory entry is for; 0 for none.
int32_t entry_pid(const dirent &entry)
{
    return entry.d_type == DT_DIR ? static_cast<int32_t>(strtol(entry.d_name, nullptr, 10)) : 0;
}

} // namespace

zorv_ps_list *zorv_ps_filter(int with_fds, int (*filter)(zorv_ps_record *record, void *arg),
                             void *arg)
{
    const auto page = static_cast<unsigned long>(sysconf(_SC_PAGESIZE));
    const Dir proc(opendir(kProc));
    if (!proc) {
        log_error("Failed to open '%s': %s", kProc, strerror(errno));
        return nullptr;
    }
    PsList list = zorv_ps_list_init();
    if (!list)
        return nullptr;
    if (with_fds) {
        list->sockets = cache_sockets().release();
        if (!list->sockets)
            log_warning("Failed to cache sockets");
    }

    const int proc_fd = dirfd(proc.get());
    const Walk walk = {proc_fd, is_procfs(proc_fd), with_fds != 0, std::countr_zero(page / 1024),
                       list->sockets};
    while (const dirent *const entry = next_entry(proc.get())) {
        const int32_t pid = entry_pid(*entry);
        Record record = pid != 0 ? read_process(walk, pid) : nullptr;
        if (record && !(filter && filter(record.get(), arg) == 1))
            append(*list, std::move(record));
    }
    if (errno != 0) {
        log_error("Failed to read '%s': %s", kProc, strerror(errno));
        return nullptr;
    }
    return list.release();
}

zorv_ps_list *zorv_ps(void)
{
    return zorv_ps_filter(0, nullptr, nullptr);
}

void zorv_ps_list_free(zorv_ps_list *list)
{
    if (!list)
        return;
    while (take_first(*list))
        continue;
    const Sockets sockets(list->sockets);
    free(list);
}

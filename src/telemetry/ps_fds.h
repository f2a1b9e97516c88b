// ps_fds.h - the open descriptors of one process.
#ifndef ZORV_TELEMETRY_PS_FDS_H
#define ZORV_TELEMETRY_PS_FDS_H

#include <cerrno>
#include <string_view>

#include <dirent.h>
#include <zorv/ps.h>

namespace zorv {

// The next entry of a directory; NULL at the end, and then errno is 0, or when reading failed.
inline const dirent *next_entry(DIR *dir)
{
    errno = 0;
    return readdir(dir);
}

// What the target of a link in /proc/PID/fd is; ZORV_FD_UNKNOWN for what has no kind of its own.
uint32_t classify_target(const char *target);

// The number in brackets of "socket:[7]".
uint32_t target_inode(const char *target);

// What is the same for every process of a walk.
struct Walk {
    int proc;       // the directory /proc
    bool is_procfs; // the kernel's own
    bool with_fds;
    int page_shift; // from pages to KiB
    const zorv_socket_cache *sockets;
};

// Counts the record's descriptors and, if the walk is with_fds, resolves them.
void walk_process_fds(const Walk &walk, zorv_ps_record &record);

void free_fds(zorv_fd_list &fds);

} // namespace zorv

#endif

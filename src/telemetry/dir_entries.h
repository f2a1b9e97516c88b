// dir_entries.h - the entries of a directory, read with no call but the kernel's own: a list of
// processes opens hundreds of directories, and opendir() looks at each and allocates for it.
#ifndef ZORV_TELEMETRY_DIR_ENTRIES_H
#define ZORV_TELEMETRY_DIR_ENTRIES_H

#include <cerrno>

#include <dirent.h>

namespace zorv {

class DirEntries {
public:
    explicit DirEntries(int fd) : fd_(fd) {}

    // The next entry, borrowed until the next call; NULL at the end and when reading failed.
    const dirent64 *next()
    {
        if (at_ == length_ && !fill())
            return nullptr;
        const auto entry = reinterpret_cast<const dirent64 *>(block_ + at_);
        at_ += entry->d_reclen;
        return entry;
    }

    // Why reading failed, an errno; 0 at the end.
    int error() const { return error_; }

private:
    // A directory that has been removed, such as that of a process that has ended, is at its end.
    bool fill()
    {
        const ssize_t count = getdents64(fd_, block_, sizeof block_);
        if (count < 0 && errno != ENOENT)
            error_ = errno;
        at_ = 0;
        length_ = count > 0 ? static_cast<size_t>(count) : 0;
        return length_ > 0;
    }

    int fd_;
    int error_ = 0;
    size_t at_ = 0;
    size_t length_ = 0;
    alignas(dirent64) char block_[8192]; // the entries of some 300 descriptors
};

} // namespace zorv

#endif

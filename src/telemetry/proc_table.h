// proc_table.h - the lines of a table of /proc, read a page at a time. The kernel makes a page
// ready for a read and looks for its place anew for the next, and it advises streams to read a
// quarter of that; tables of many lines are also spared the copy that a stream makes of each.
#ifndef ZORV_TELEMETRY_PROC_TABLE_H
#define ZORV_TELEMETRY_PROC_TABLE_H

#include <algorithm>
#include <cstring>

#include <fcntl.h>

#include "core/own.h"

namespace zorv {

// As fgets() has it: lines with their newlines, one of Size bytes or more in pieces of Size - 1,
// each of which stands for a line.
template <size_t Size>
class ProcTable {
public:
    explicit ProcTable(const char *path) : ProcTable(Fd(open(path, O_RDONLY | O_CLOEXEC))) {}
    explicit ProcTable(Fd fd) : fd_(std::move(fd)) {}

    explicit operator bool() const { return static_cast<bool>(fd_); }

    // The next piece, NUL-terminated and the caller's to cut until the next call; NULL at the end
    // and when reading failed.
    char *next()
    {
        page_[begin_] = first_; // the terminator stood on the first byte of this piece
        size_t length;
        while ((length = piece_length()) == 0) {
            if (!fill()) {
                length = error_ == 0 ? end_ - begin_ : 0;
                break;
            }
        }
        char *const piece = page_ + begin_;
        begin_ += length;
        // NOLINTNEXTLINE(clang-analyzer-core.uninitialized.Assign): read() has filled it
        first_ = page_[begin_];
        page_[begin_] = '\0';
        return length > 0 ? piece : nullptr;
    }

    // Why reading failed, an errno; 0 when it has not.
    int error() const { return error_; }

private:
    static constexpr size_t kBlock = 8192;
    static_assert(Size <= kBlock);

    // The length of the next piece; 0 while more has to be read to know it.
    size_t piece_length() const
    {
        const size_t room = std::min(end_ - begin_, Size - 1);
        const auto newline = static_cast<const char *>(memchr(page_ + begin_, '\n', room));
        if (newline)
            return static_cast<size_t>(newline - page_) - begin_ + 1;
        return room == Size - 1 ? room : 0;
    }

    // Reads on behind what is left, which moves to the front. False at the end and for an error.
    bool fill()
    {
        memmove(page_, page_ + begin_, end_ - begin_);
        end_ -= begin_;
        begin_ = 0;
        const ssize_t count = TEMP_FAILURE_RETRY(read(fd_.get(), page_ + end_, kBlock - end_));
        if (count < 0)
            error_ = errno;
        end_ += count > 0 ? static_cast<size_t>(count) : 0;
        page_[end_] = '\0';
        return count > 0;
    }

    Fd fd_;
    size_t begin_ = 0; // of the next piece
    size_t end_ = 0;   // of what has been read
    int error_ = 0;
    char first_ = '\0';
    char page_[kBlock + 1];
};

} // namespace zorv

#endif

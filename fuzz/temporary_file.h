// temporary_file.h - a file in memory for the functions that take a path.
#ifndef ZORV_FUZZ_TEMPORARY_FILE_H
#define ZORV_FUZZ_TEMPORARY_FILE_H

#include <cstdint>
#include <cstdlib>
#include <string>

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

class TemporaryFile {
public:
    TemporaryFile(const uint8_t *data, size_t size)
        : fd_(memfd_create("input", MFD_CLOEXEC)), path_("/proc/self/fd/" + std::to_string(fd_))
    {
        if (write(fd_, data, size) != static_cast<ssize_t>(size))
            abort();
    }
    ~TemporaryFile() { close(fd_); }
    TemporaryFile(const TemporaryFile &) = delete;
    TemporaryFile &operator=(const TemporaryFile &) = delete;

    const char *path() const { return path_.c_str(); }

    size_t size() const
    {
        struct stat info;
        return fstat(fd_, &info) == 0 ? static_cast<size_t>(info.st_size) : SIZE_MAX;
    }

private:
    int fd_;
    std::string path_;
};

#endif

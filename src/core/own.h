// own.h - owners for what C hands out: released once, on every path, errno untouched.
#ifndef ZORV_CORE_OWN_H
#define ZORV_CORE_OWN_H

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

#include <dirent.h>
#include <sys/file.h>
#include <unistd.h>

struct json_t;

namespace zorv {

template <auto Close>
struct Closer {
    template <class T>
    void operator()(T *resource) const
    {
        const int saved = errno;
        Close(resource);
        errno = saved;
    }
};

// Who owns values includes <jansson.h>; who does not need not have it.
struct JsonCloser {
    template <class T>
    void operator()(T *value) const
    {
        const int saved = errno;
        json_decref(value);
        errno = saved;
    }
};

using Text = std::unique_ptr<char, Closer<free>>; // malloc'd, NUL-terminated
using File = std::unique_ptr<FILE, Closer<fclose>>;
using Dir = std::unique_ptr<DIR, Closer<closedir>>;
using Json = std::unique_ptr<json_t, JsonCloser>; // one reference

// A file descriptor; -1 is empty.
class Fd {
public:
    Fd() = default;
    explicit Fd(int fd) : fd_(fd) {}
    Fd(Fd &&other) noexcept : fd_(other.release()) {}
    Fd &operator=(Fd &&other) noexcept
    {
        reset(other.release());
        return *this;
    }
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
    ~Fd() { reset(); }

    explicit operator bool() const { return fd_ >= 0; }
    int get() const { return fd_; }
    int release() { return std::exchange(fd_, -1); }
    void reset(int fd = -1)
    {
        const int old = std::exchange(fd_, fd);
        if (old < 0)
            return;
        const int saved = errno;
        close(old);
        errno = saved;
    }

private:
    int fd_ = -1;
};

// Takes the exclusive lock without waiting; empty when another process has it.
inline Fd locked(Fd fd)
{
    return flock(fd.get(), LOCK_EX | LOCK_NB) == 0 ? std::move(fd) : Fd();
}

} // namespace zorv

#endif

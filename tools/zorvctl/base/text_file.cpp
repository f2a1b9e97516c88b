#include "base/text_file.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/output.h"

namespace ctl {
namespace {

using zorv::Fd;

constexpr size_t kMost = 64 << 20; // far beyond any device's files; /dev/zero gets there

// The folder of a path, locked against others of our kind.
Fd lock_folder(const std::string &path)
{
    const std::string folder = path.substr(0, path.rfind('/') + 1);
    Fd fd(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd)
        throw io_failure(folder, errno);
    fd = zorv::locked(std::move(fd));
    if (!fd && errno == EWOULDBLOCK)
        throw Failure(Exit::refused, folder + ": another process is changing a file there");
    if (!fd)
        throw io_failure(folder, errno);
    return fd;
}

std::string resolve(const std::string &path)
{
    const zorv::Text real(realpath(path.c_str(), nullptr));
    if (!real)
        throw io_failure(path, errno);
    return real.get();
}

Fd open_file(const std::string &path)
{
    Fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd)
        throw io_failure(path, errno);
    return fd;
}

std::string read_all(const Fd &fd, const std::string &path)
{
    std::string contents;
    char piece[1 << 14];
    while (const size_t count = read_piece(fd, path, piece, sizeof piece)) {
        contents.append(piece, count);
        if (contents.size() > kMost)
            throw io_failure(path, EFBIG);
    }
    return contents;
}

} // namespace

std::string read_file(const std::string &path)
{
    return read_all(open_file(path), path);
}

std::string read_input(const std::string &path)
{
    return read_all(open_input(path), path);
}

zorv::Fd open_input(const std::string &path)
{
    if (path != "-")
        return open_file(path);
    Fd fd(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0));
    if (!fd)
        throw io_failure("standard input", errno);
    return fd;
}

size_t read_piece(const zorv::Fd &fd, const std::string &path, char *bytes, size_t size)
{
    for (;;) {
        const ssize_t count = read(fd.get(), bytes, size);
        if (count >= 0)
            return static_cast<size_t>(count);
        if (errno != EINTR)
            throw io_failure(path, errno);
    }
}

void write_file(const std::string &path, std::string_view bytes)
{
    zorv::File file(fopen(path.c_str(), "we"));
    if (!file || fwrite(bytes.data(), 1, bytes.size(), file.get()) != bytes.size() ||
        fclose(file.release()) != 0)
        throw io_failure(path, errno);
}

Replacement::Replacement(const std::string &path)
    : path_(resolve(path)), folder_(lock_folder(path_))
{
    struct stat old;
    if (stat(path_.c_str(), &old) != 0 || faccessat(AT_FDCWD, path_.c_str(), W_OK, AT_EACCESS) != 0)
        throw io_failure(path, errno);
    if (!S_ISREG(old.st_mode))
        throw Failure(Exit::failed, path + ": not a regular file");
    sigset_t held;
    sigemptyset(&held);
    for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM})
        sigaddset(&held, number);
    sigprocmask(SIG_BLOCK, &held, &old_mask_);
    old_limit_ = signal(SIGXFSZ, SIG_IGN); // a limit on file sizes is a failed write instead
}

Replacement::~Replacement()
{
    if (!temporary_.empty())
        unlink(temporary_.c_str());
    signal(SIGXFSZ, old_limit_);
    sigprocmask(SIG_SETMASK, &old_mask_, nullptr);
}

const std::string &Replacement::begin()
{
    std::string pattern = path_ + ".XXXXXX";
    fd_ = Fd(mkostemp(pattern.data(), O_CLOEXEC));
    if (!fd_)
        throw io_failure(pattern, errno);
    temporary_ = pattern;
    return temporary_;
}

void Replacement::commit()
{
    struct stat old;
    if (stat(path_.c_str(), &old) != 0 || fchown(fd_.get(), old.st_uid, old.st_gid) != 0 ||
        fchmod(fd_.get(), old.st_mode & 07777) != 0 || fsync(fd_.get()) != 0 ||
        rename(temporary_.c_str(), path_.c_str()) != 0)
        throw io_failure(path_ + ": left as it was", errno);
    temporary_.clear();
    if (fsync(folder_.get()) != 0)
        throw io_failure(path_ + ": replaced, but perhaps not on disk yet", errno);
}

} // namespace ctl

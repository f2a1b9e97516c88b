#include "base/replacement.h"

#include <cerrno>
#include <chrono>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/output.h"
#include "base/text_file.h"

namespace ctl {
namespace {

using zorv::Fd;
using Clock = std::chrono::steady_clock;

constexpr char kNew[] = "new";     // the new content, in the folder
constexpr int kPause = 10'000;     // microseconds between two looks at the lock
constexpr int kMostAttempts = 100; // of such as others spoil by coming and going

std::string resolve(const std::string &path)
{
    const zorv::Text real(realpath(path.c_str(), nullptr));
    if (!real)
        throw io_failure(path, errno);
    return real.get();
}

} // namespace

HeldSignals::HeldSignals()
{
    sigset_t held;
    sigemptyset(&held);
    for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM})
        sigaddset(&held, number);
    sigprocmask(SIG_BLOCK, &held, &old_mask_);
    old_limit_ = signal(SIGXFSZ, SIG_IGN); // a limit on file sizes is a failed write instead
}

HeldSignals::~HeldSignals()
{
    signal(SIGXFSZ, old_limit_);
    sigprocmask(SIG_SETMASK, &old_mask_, nullptr);
}

Replacement::Replacement(const std::string &path, double wait) : path_(resolve(path))
{
    const size_t name = path_.rfind('/') + 1;
    folder_path_ = path_.substr(0, name);
    name_ = path_.substr(name);
    room_name_ = "." + name_ + ".zorvctl";
    if (lstat(path_.c_str(), &old_) != 0 ||
        faccessat(AT_FDCWD, path_.c_str(), W_OK, AT_EACCESS) != 0)
        throw io_failure(path, errno);
    if (!S_ISREG(old_.st_mode))
        throw Failure(Exit::failed, path + ": not a regular file");
    folder_ = Fd(open(folder_path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder_)
        throw io_failure(folder_path_, errno);

    const auto end = Clock::now() + std::chrono::duration<double>(wait);
    while (!enter()) {
        if (Clock::now() >= end)
            throw Failure(Exit::refused, path + ": another process is changing it");
        usleep(kPause);
    }
}

Replacement::~Replacement()
{
    unlinkat(room_.get(), kNew, 0);
    unlinkat(folder_.get(), room_name_.c_str(), AT_REMOVEDIR);
}

// Signals are held from here on when it succeeds.
bool Replacement::enter()
{
    signals_.emplace();
    Attempt attempt = Attempt::again;
    for (int count = 0; attempt == Attempt::again && count < kMostAttempts; count++)
        attempt = try_to_enter();
    if (attempt == Attempt::done) {
        unlinkat(room_.get(), kNew, 0); // of one that was killed
        return true;
    }
    signals_.reset();
    return false;
}

Replacement::Attempt Replacement::try_to_enter()
{
    const char *const name = room_name_.c_str();
    if (mkdirat(folder_.get(), name, 0700) != 0 && errno != EEXIST)
        throw io_failure(folder_path_ + room_name_, errno);
    Fd room(openat(folder_.get(), name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat ours, there;
    if (!room && errno == ENOENT)
        return Attempt::again;
    if (!room && errno != ENOTDIR && errno != ELOOP)
        throw io_failure(folder_path_ + room_name_, errno);
    if (!room || fstat(room.get(), &ours) != 0 || !is_trusted(ours)) {
        put_aside();
        return Attempt::again;
    }
    room = zorv::locked(std::move(room));
    if (!room && errno != EWOULDBLOCK)
        throw io_failure(folder_path_ + room_name_, errno);
    if (!room)
        return Attempt::held;
    // The one who had the lock has taken the folder away, and another one may be there by now.
    if (fstatat(folder_.get(), name, &there, AT_SYMLINK_NOFOLLOW) != 0 ||
        there.st_ino != ours.st_ino || there.st_dev != ours.st_dev)
        return Attempt::again;
    room_ = std::move(room);
    return Attempt::done;
}

bool Replacement::is_trusted(const struct stat &room) const
{
    return room.st_uid == geteuid() || room.st_uid == old_.st_uid || room.st_uid == 0;
}

// Where everybody may make files, like /tmp, somebody may have taken the name.
void Replacement::put_aside() const
{
    const std::string aside =
        room_name_ + "." + std::to_string(Clock::now().time_since_epoch().count());
    if (renameat(folder_.get(), room_name_.c_str(), folder_.get(), aside.c_str()) != 0 &&
        errno != ENOENT)
        throw io_failure(folder_path_ + room_name_ + ": is somebody else's", errno);
}

// Whoever may write in the folder may put another file or a link there at any time.
std::string Replacement::read()
{
    const Fd file(
        openat(folder_.get(), name_.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file || fstat(file.get(), &old_) != 0)
        throw io_failure(path_, errno);
    if (!S_ISREG(old_.st_mode))
        throw Failure(Exit::failed, path_ + ": not a regular file");
    return read_all(file, path_);
}

std::string Replacement::write(std::string_view content)
{
    fd_ = Fd(openat(room_.get(), kNew, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!fd_)
        throw io_failure(path_ + ": left as it was", errno);
    while (!content.empty()) {
        const ssize_t count = ::write(fd_.get(), content.data(), content.size());
        if (count < 0 && errno != EINTR)
            throw io_failure(path_ + ": left as it was", errno);
        content.remove_prefix(count < 0 ? 0 : static_cast<size_t>(count));
    }
    if (lseek(fd_.get(), 0, SEEK_SET) != 0)
        throw io_failure(path_ + ": left as it was", errno);
    return read_all(fd_, path_);
}

void Replacement::commit()
{
    if (fchown(fd_.get(), old_.st_uid, old_.st_gid) != 0 ||
        fchmod(fd_.get(), old_.st_mode & 07777) != 0 || fsync(fd_.get()) != 0 ||
        renameat(room_.get(), kNew, folder_.get(), name_.c_str()) != 0)
        throw io_failure(path_ + ": left as it was", errno);
    if (fsync(folder_.get()) != 0)
        throw io_failure(path_ + ": replaced, but perhaps not on disk yet", errno);
}

} // namespace ctl

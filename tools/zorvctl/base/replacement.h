// replacement.h - a file replaced by its next content, by one writer at a time, never by half.
#ifndef ZORVCTL_REPLACEMENT_H
#define ZORVCTL_REPLACEMENT_H

#include <csignal>
#include <optional>
#include <string>
#include <string_view>

#include <sys/stat.h>

#include "base/options.h"
#include "core/own.h"

namespace ctl {

// Holds back what would end the process in the middle.
class HeldSignals {
public:
    HeldSignals();
    HeldSignals(const HeldSignals &) = delete;
    HeldSignals &operator=(const HeldSignals &) = delete;
    ~HeldSignals();

private:
    sigset_t old_mask_ = {};
    void (*old_limit_)(int);
};

// Replaces an existing file under another one's eyes: readers see the old content or the new. In
// this order: read(), write(), commit(); to leave one out and go is to leave the file as it was.
//
// The new content is written in a folder `.NAME.zorvctl` beside the file. Whoever has locked that
// folder is the file's one writer; nobody but root and the writer himself can open it, so nobody
// else can hold the lock, as they could that of a file which they may read. What a writer that was
// killed left in the folder goes with the next writer. Signals that would end the process wait.
//
// What fails throws; then, and when it goes without a commit, the file is as it was.
class Replacement {
public:
    // Waits up to so many seconds for other writers; then it is refused. Fails for what is not a
    // regular file that may be written. A link is followed.
    Replacement(const std::string &path, double wait);
    Replacement(const Replacement &) = delete;
    Replacement &operator=(const Replacement &) = delete;
    ~Replacement();

    // The old content. Its mode and owner, of the very file that was read, are those of the new
    // one.
    std::string read();

    // Writes the new content, once; returns what is read back.
    std::string write(std::string_view content);

    // Puts the new content, on disk, in the place of the old.
    void commit();

private:
    enum class Attempt { done, held, again };

    bool enter();
    Attempt try_to_enter();
    bool is_trusted(const struct stat &room) const;
    void put_aside() const;

    std::optional<HeldSignals> signals_;
    std::string path_, folder_path_, name_, room_name_;
    struct stat old_ = {};        // of the file
    zorv::Fd folder_, room_, fd_; // the file's; the one beside it, locked; the new content
};

// The option for the seconds.
template <auto Member>
constexpr Option wait_option()
{
    return option<Member>("--wait", "Seconds to wait while another process changes the file")
        .range(0, 86400);
}

} // namespace ctl

#endif

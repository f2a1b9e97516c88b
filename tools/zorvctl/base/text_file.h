// text_file.h - whole files: read, or replaced without ever leaving half of one.
#ifndef ZORVCTL_TEXT_FILE_H
#define ZORVCTL_TEXT_FILE_H

#include <csignal>
#include <string>
#include <string_view>

#include "core/own.h"

namespace ctl {

// Reads a file to its end; throws io_failure() when it cannot, or when there is no end in sight.
std::string read_file(const std::string &path);

// The same, where "-" is the standard input.
std::string read_input(const std::string &path);

// For what is read in pieces: opens, "-" being the standard input, and reads up to `size` bytes, 0
// at the end. What fails throws io_failure().
zorv::Fd open_input(const std::string &path);
size_t read_piece(const zorv::Fd &fd, const std::string &path, char *bytes, size_t size);

// Writes a file anew, with nothing of an old one left; throws io_failure() when it cannot.
void write_file(const std::string &path, std::string_view bytes);

// Replaces an existing file under another one's eyes: readers see the old content or the new.
//
// From construction on no other Replacement works in the file's folder, and signals that would end
// the process wait, so that it never leaves its temporary file behind. What fails throws; then, and
// when it goes without a commit, the file is as it was.
class Replacement {
public:
    // Fails for what is not a regular file that may be written. A link is followed.
    explicit Replacement(const std::string &path);
    Replacement(const Replacement &) = delete;
    Replacement &operator=(const Replacement &) = delete;
    ~Replacement();

    // Creates the temporary file, beside the old one; gives its path, for the content to go there.
    const std::string &begin();

    // Puts the temporary file, on disk and with the mode and owner of the old one, in its place.
    void commit();

private:
    std::string path_, temporary_; // the second is empty while there is none
    zorv::Fd folder_, fd_;         // the folder, locked; the temporary file
    sigset_t old_mask_ = {};
    void (*old_limit_)(int) = nullptr;
};

} // namespace ctl

#endif

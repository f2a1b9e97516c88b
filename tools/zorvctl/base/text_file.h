// text_file.h - whole files, and files in pieces.
#ifndef ZORVCTL_TEXT_FILE_H
#define ZORVCTL_TEXT_FILE_H

#include <string>
#include <string_view>

#include "core/own.h"

namespace ctl {

// Reads a file to its end; throws io_failure() when it cannot, or when there is no end in sight.
std::string read_file(const std::string &path);

// The same, where "-" is the standard input; the second time that is a misuse, as there would be
// nothing left of it.
std::string read_input(const std::string &path);

// The same of an open file, from where it is.
std::string read_all(const zorv::Fd &fd, const std::string &path);

// Writes a file, anew or over an old one; throws io_failure() when it cannot.
void write_file(const std::string &path, std::string_view bytes);

// For what is read in pieces: opens, "-" being the standard input, and reads up to `size` bytes, 0
// at the end. What fails throws io_failure().
zorv::Fd open_input(const std::string &path);
size_t read_piece(const zorv::Fd &fd, const std::string &path, char *bytes, size_t size);

} // namespace ctl

#endif

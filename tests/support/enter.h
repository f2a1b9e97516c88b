// enter.h - the way into a throw-away device, for main() and the fixture.
#ifndef ZORV_TESTS_SUPPORT_ENTER_H
#define ZORV_TESTS_SUPPORT_ENTER_H

#include <cerrno>
#include <functional>
#include <string>
#include <string_view>
#include <system_error>

#include <sys/types.h>

// Runs work() as a process in a new device. Returns its exit status, or 128 and the number of the
// signal that ended it; 1, with the reason on standard output, when the device cannot be entered.
int run_in_device(const std::function<int()> &work);

// Passes the result of a system call on; throws std::system_error for -1.
template <class Result>
Result check(Result rc, const std::string &what)
{
    return rc != -1 ? rc : throw std::system_error(errno, std::generic_category(), what);
}

// Waits for one child. Returns its exit status, or 128 and the number of a signal.
int wait_for(pid_t child);

// Replaces a file's content.
void write_text(const std::string &path, std::string_view text);

void mount_at(const char *type, const std::string &path, const char *options = nullptr);

#endif

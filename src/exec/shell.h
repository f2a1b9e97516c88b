// shell.h - command lines of the system's shell.
#ifndef ZORV_EXEC_SHELL_H
#define ZORV_EXEC_SHELL_H

#include <cstdlib>
#include <cstring>

#include <sys/wait.h>

namespace zorv {

// Runs a command line; what becomes part of it is to be a constant or a plain word. Returns its
// exit status, or -1 when a signal ended it, or the shell could not be started or waited for. The C
// library tells of a shell that did not start by 127, so a command line ends in "|| exit 1" where
// its own failures matter.
inline int run_shell(const char *command)
{
    const int status = system(command); // NOLINT(cert-env33-c): see above
    return WIFEXITED(status) && WEXITSTATUS(status) != 127 ? WEXITSTATUS(status) : -1;
}

// Whether the shell takes the text as it stands: A-Z a-z 0-9 . _ - only.
inline bool is_plain_word(const char *text)
{
    return text[strspn(text, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                             "0123456789._-")] == '\0';
}

} // namespace zorv

#endif

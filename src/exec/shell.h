// shell.h - command lines of the system's shell.
#ifndef ZORV_EXEC_SHELL_H
#define ZORV_EXEC_SHELL_H

#include <cstdlib>
#include <cstring>

namespace zorv {

// Runs a command line and returns as system(3) does. What becomes part of it is to be a constant or
// a plain word.
inline int run_shell(const char *command)
{
    return system(command); // NOLINT(cert-env33-c): see above
}

// Whether the shell takes the text as it stands: A-Z a-z 0-9 . _ - only.
inline bool is_plain_word(const char *text)
{
    return text[strspn(text, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                             "0123456789._-")] == '\0';
}

} // namespace zorv

#endif

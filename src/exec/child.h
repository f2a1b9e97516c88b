// child.h - starting a program in a time that does not depend on the caller's memory.
//
// The child shares the caller's memory, and the calling thread stands still, until the program
// starts, as with posix_spawn(). Nothing but system calls runs in between: neither the log nor the
// host's atfork handlers.
#ifndef ZORV_EXEC_CHILD_H
#define ZORV_EXEC_CHILD_H

#include <sys/types.h>

namespace zorv {

struct Program {
    const char *path;
    const char *const *argv;
    int output = -1;       // becomes its standard output; SIGPIPE ends it then, as it does a filter
    bool detached = false; // runs as a child of init; the child leaves at once
};

// What came of starting it.
struct Child {
    pid_t pid = -1;     // -1: there is none, and fork_error tells why
    int fork_error = 0; // with a pid: why the program is not detached
    int exec_error = 0; // why the program could not be started; the child leaves with status 0
};

Child start_child(const Program &program);

// Waits for this child alone. Returns its wait status, or -1 with errno when somebody has reaped
// it.
int reap_child(pid_t pid);

} // namespace zorv

#endif

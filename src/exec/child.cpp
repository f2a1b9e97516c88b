#include "exec/child.h"

#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace zorv;

namespace {

constexpr size_t kStack = 16384; // of a child: it makes a few system calls
constexpr int kLikeVfork = CLONE_VM | CLONE_VFORK | SIGCHLD;

// Of the child and, below it, of the child's own child. An array would lie on the stack of the
// caller's thread, which may be small.
class Stacks {
public:
    Stacks() = default;
    Stacks(const Stacks &) = delete;
    Stacks &operator=(const Stacks &) = delete;
    ~Stacks()
    {
        if (*this)
            munmap(memory_, 2 * kStack);
    }

    explicit operator bool() const { return memory_ != MAP_FAILED; }
    void *top() const { return static_cast<char *>(memory_) + 2 * kStack; } // they grow downwards
    void *second_top() const { return static_cast<char *>(memory_) + kStack; }

private:
    void *memory_ = mmap(nullptr, 2 * kStack, PROT_READ | PROT_WRITE,
                         MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
};

struct Job {
    const Program &program;
    Stacks stacks = {};
    sigset_t mask = {}; // the program's
    Child child = {};
};

// What runs in a child leaves its frames behind: a sanitizer that marks them would find the marks
// on the stack of the next child.
#define IN_CHILD [[gnu::no_sanitize_address]]

// A handler would run in the caller's memory once the signals are let in again.
IN_CHILD void forget_handlers()
{
    for (int signal = 1; signal < NSIG; ++signal) {
        struct sigaction action;
        if (sigaction(signal, nullptr, &action) != 0 || action.sa_handler == SIG_IGN ||
            action.sa_handler == SIG_DFL)
            continue;
        action = {};
        sigaction(signal, &action, nullptr);
    }
}

IN_CHILD void redirect(int output)
{
    struct sigaction by_default = {};
    sigaction(SIGPIPE, &by_default, nullptr);
    if (output == STDOUT_FILENO) // the caller had closed its own
        fcntl(output, F_SETFD, 0);
    else
        dup2(output, STDOUT_FILENO);
}

// In the child, or in the child's own. A return ends the process with this status.
IN_CHILD int run_program(void *argument)
{
    auto &job = *static_cast<Job *>(argument);
    sigprocmask(SIG_SETMASK, &job.mask, nullptr);
    execv(job.program.path, const_cast<char *const *>(job.program.argv));
    job.child.exec_error = errno;
    return 0;
}

IN_CHILD int run_child(void *argument)
{
    auto &job = *static_cast<Job *>(argument);
    forget_handlers();
    if (job.program.output >= 0)
        redirect(job.program.output);
    if (job.program.detached) {
        if (clone(run_program, job.stacks.second_top(), kLikeVfork, argument) >= 0)
            return 0;
        job.child.fork_error = errno;
    }
    return run_program(argument);
}

} // namespace

Child zorv::start_child(const Program &program)
{
    Job job{program};
    if (!job.stacks) {
        job.child.fork_error = errno;
        return job.child;
    }
    sigset_t all, mask;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &mask);
    job.mask = mask;
    if (program.output >= 0)
        sigdelset(&job.mask, SIGPIPE);
    const pid_t pid = clone(run_child, job.stacks.top(), kLikeVfork, &job);
    if (pid < 0)
        job.child.fork_error = errno;
    job.child.pid = pid;
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    return job.child;
}

int zorv::reap_child(pid_t pid)
{
    int status = 0;
    pid_t reaped;
    do
        reaped = waitpid(pid, &status, 0);
    while (reaped < 0 && errno == EINTR);
    return reaped < 0 ? -1 : status;
}

// pipe_signal.h - writing to a reader that may have gone, without ending the program.
#ifndef ZORV_CORE_PIPE_SIGNAL_H
#define ZORV_CORE_PIPE_SIGNAL_H

#include <csignal>
#include <ctime>

namespace zorv {

// Holds SIGPIPE back in this thread, and takes away one that was raised meanwhile.
class PipeSignalHeld {
public:
    PipeSignalHeld()
    {
        sigset_t pending;
        sigpending(&pending);
        was_pending_ = sigismember(&pending, SIGPIPE) == 1;
        const sigset_t pipe = pipe_signal();
        pthread_sigmask(SIG_BLOCK, &pipe, &old_);
    }
    PipeSignalHeld(const PipeSignalHeld &) = delete;
    PipeSignalHeld &operator=(const PipeSignalHeld &) = delete;
    ~PipeSignalHeld()
    {
        const sigset_t pipe = pipe_signal();
        constexpr timespec kAtOnce = {};
        if (!was_pending_)
            sigtimedwait(&pipe, nullptr, &kAtOnce);
        pthread_sigmask(SIG_SETMASK, &old_, nullptr);
    }

private:
    static sigset_t pipe_signal()
    {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, SIGPIPE);
        return set;
    }

    sigset_t old_;
    bool was_pending_;
};

} // namespace zorv

#endif

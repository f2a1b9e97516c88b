// pause.h - waiting that a signal does not cut short.
#ifndef ZORV_CORE_PAUSE_H
#define ZORV_CORE_PAUSE_H

#include <cerrno>
#include <ctime>

namespace zorv {

// Waits so many seconds. Signal handlers of the program run meanwhile, and the wait goes on to its
// deadline, where sleep() would return.
inline void pause_for(time_t seconds)
{
    timespec deadline;
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += seconds;
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline, nullptr) == EINTR)
        ;
}

} // namespace zorv

#endif

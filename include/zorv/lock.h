/*
 * lock.h - two locks with which the processes of the unit take turns.
 *
 * The report lock is for those who produce statistics reports; it is the folder /var/run/report,
 * which must be there. The inform-profile lock guards the inform profile; it is the file
 * /var/run/inform-profile.lock, which is created with permissions 0640. Both are exclusive locks of
 * flock(2) and independent of each other.
 *
 * A process holds each at most once, in a handle of the library that has no lock: one thread at a
 * time may take or release either. The kernel lets go when the process ends. A child forked
 * meanwhile has the handle, too: the lock outlasts its parent, and a release by either is one for
 * both. Failures return -1, leave nothing open and log one error each.
 */
#ifndef ZORV_LOCK_H
#define ZORV_LOCK_H

#include <zorv/api.h>

ZORV_BEGIN

/*
 * Take the lock. While another process has it they try again, 11 times in all, and wait a second
 * after each try that failed, the last one too: up to 11 seconds. A signal's handler runs meanwhile
 * and neither shortens nor lengthens the wait.
 *
 * Return 0 when the lock is held; else -1, with "Locking %s twice" when this process has it already
 * (which it keeps), "Can't open %s", or "couldn't lock %s".
 */
int report_lock(void);
int inform_profile_lock(void);

/* Release the lock. Return 0, or -1 with "unlocking %s without locking". */
int report_unlock(void);
int inform_profile_unlock(void);

/* Returns 1 while this process holds the report lock, else 0. */
int report_locked(void);

ZORV_END

#endif

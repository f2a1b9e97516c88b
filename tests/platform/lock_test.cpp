// The locks with a wait of their own that takes no time and is counted.

#include <cmath>

#include <sys/file.h>

#include "platform/rows.h"

using Lock = Device;

// The seconds asked for, how many until the other holder lets go, its descriptor.
static int g_sleeps = 0, g_release_after = 0, g_other = -1;

// Of a second to a deadline, which a signal cuts each time.
extern "C" int clock_nanosleep(clockid_t clock, int, const timespec *deadline, timespec *)
{
    static timespec cut;
    if (std::exchange(cut, *deadline).tv_nsec != deadline->tv_nsec)
        return EINTR;
    timespec now;
    clock_gettime(clock, &now);
    const auto parts = static_cast<double>(deadline->tv_nsec - now.tv_nsec);
    g_sleeps +=
        static_cast<int>(std::lround(difftime(deadline->tv_sec, now.tv_sec) + parts * 1e-9));
    if (g_sleeps == g_release_after)
        flock(g_other, LOCK_UN);
    return 0;
}

TEST_F(Lock, IsHeldOnceReleasedOnceAndTriedElevenTimes)
{
    must_run("touch /var/run/report; mkdir /var/run/inform-profile.lock"); // the wrong kinds
    for (const auto &[take, release, name, file_name] :
         {std::tuple(&report_lock, &report_unlock, "report", "report"),
          {inform_profile_lock, inform_profile_unlock, "inform_profile", "inform-profile.lock"}}) {
        const std::string log = std::string(" [error] statistics.") + name,
                          path = std::string("/var/run/") + file_name;
        EXPECT_EQ(with_log(shown(take())), "-1" + log + "_lock(): Can't open " + path);
        must_run("rm -r " + path + "; mkdir -p /var/run/report");
        const int before = open_descriptors();
        // What a step came to: its result, whether it holds the lock, the seconds waited, the log.
        const auto state = [](int rc) {
            const bool is_free = flock(g_other, LOCK_EX | LOCK_NB) == 0;
            flock(g_other, LOCK_UN);
            return with_log(shown(rc, is_free ? "free" : "held", std::exchange(g_sleeps, 0)));
        };
        const int rc = take();
        g_other = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        EXPECT_EQ(state(rc), "0 held 0");
        EXPECT_EQ(report_locked(), take == report_lock);
        EXPECT_EQ(state(take()), "-1 held 0" + log + "_lock(): Locking " + path + " twice");
        EXPECT_EQ(state(release()), "0 free 0");
        EXPECT_EQ(state(release()),
                  "-1 free 0" + log + "_unlock(): unlocking " + path + " without locking");
        for (const auto &[seconds, want] :
             {std::pair(100, "-1 free 11"), {11, "-1 free 11"}, {10, "0 held 10"}}) {
            flock(g_other, LOCK_EX);
            g_release_after = seconds; // the last failure has its sleep, too
            EXPECT_EQ(state(take()),
                      want + (seconds > 10 ? log + "_lock(): couldn't lock " + path : ""));
        }
        close(g_other);
        EXPECT_EQ(release(), 0);
        EXPECT_EQ(open_descriptors(), before);
    }
}

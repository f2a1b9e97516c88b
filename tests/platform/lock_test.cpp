// The locks with a sleep of their own that takes no time, so that waiting for one is counted.
#include <zorv/lock.h>

#include <csignal>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "platform/rows.h"

namespace {

using Lock = Device;

constexpr struct {
    int (*take)();
    int (*release)();
    const char *name, *path;
} kLocks[] = {
    {report_lock, report_unlock, "report", "/var/run/report"},
    {inform_profile_lock, inform_profile_unlock, "inform_profile", "/var/run/inform-profile.lock"},
};

int g_sleeps = 0;        // seconds asked for
int g_release_after = 0; // how many until the other holder lets go
int g_other = -1;        // the other holder's descriptor

// What a step came to: its result, whether others see the lock held, the seconds waited, the log.
std::string state(const char *path, int rc)
{
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    const char *const holder = flock(fd, LOCK_EX | LOCK_NB) == 0 ? "free" : "held";
    close(fd);
    std::string text = shown(rc, holder, std::exchange(g_sleeps, 0));
    for (const std::string &line : Device::logged())
        text += " " + line;
    return text;
}

} // namespace

// The locks' own sleep.
extern "C" unsigned sleep(unsigned seconds)
{
    g_sleeps += static_cast<int>(seconds);
    if (g_sleeps == g_release_after)
        flock(g_other, LOCK_UN);
    return 0;
}

TEST_F(Lock, IsHeldOnceReleasedOnceAndTriedElevenTimes)
{
    must_run("touch /var/run/report; mkdir /var/run/inform-profile.lock"); // the wrong kinds
    for (const auto &[take, release, name, path] : kLocks) {
        const std::string log = std::string(" [error] statistics.") + name, at = path;
        EXPECT_EQ(take(), -1);
        EXPECT_THAT(logged(), ElementsAre(log.substr(1) + "_lock(): Can't open " + at));
        must_run("rm -r /var/run/" + at.substr(9) + "; mkdir -p /var/run/report");
        const int before = open_descriptors();
        EXPECT_EQ(state(path, take()), "0 held 0");
        EXPECT_EQ(report_locked(), take == report_lock);
        EXPECT_EQ(state(path, take()), "-1 held 0" + log + "_lock(): Locking " + at + " twice");
        const pid_t heir = fork(); // a process that has it open, too
        if (heir == 0)
            _exit(pause());
        EXPECT_EQ(state(path, release()), "0 free 0");
        kill(heir, SIGKILL);
        EXPECT_EQ(state(path, release()),
                  "-1 free 0" + log + "_unlock(): unlocking " + at + " without locking");

        g_other = open(path, O_RDONLY | O_CLOEXEC);
        for (const auto &[seconds, want] :
             {std::pair(100, "-1 held 11"), std::pair(11, "-1 free 11"),
              std::pair(10, "0 held 10")}) {
            flock(g_other, LOCK_EX);
            g_release_after = seconds; // the last failure has its sleep, too
            EXPECT_EQ(state(path, take()),
                      want + (seconds > 10 ? log + "_lock(): couldn't lock " + at : ""));
        }
        close(g_other);
        EXPECT_EQ(state(path, release()), "0 free 0");
        EXPECT_EQ(open_descriptors(), before);
    }
    EXPECT_EQ(run("stat -c %a /var/run/inform-profile.lock").output, "640\n");
}

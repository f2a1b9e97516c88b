#include <zorv/lock.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/device.h"

namespace {

using Lock = Device;

constexpr struct {
    int (*take)();
    int (*release)();
    const char *name;
    const char *path;
} kLocks[] = {
    {report_lock, report_unlock, "report", "/var/run/report"},
    {inform_profile_lock, inform_profile_unlock, "inform_profile", "/var/run/inform-profile.lock"},
};

// Whether nobody holds the lock, seen through a handle of its own.
bool is_free(const char *path)
{
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    const bool free = flock(fd, LOCK_EX | LOCK_NB) == 0;
    close(fd);
    return free;
}

std::string message(const std::string &function, const std::string &text)
{
    return "[error] statistics." + function + "(): " + text;
}

// Notes in a shared file that this process is in; nobody may be.
bool is_alone(const char *path)
{
    const int fd = open(path, O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600);
    if (fd < 0)
        return false;
    usleep(100);
    close(fd);
    return unlink(path) == 0;
}

} // namespace

TEST_F(Lock, IsHeldOnceAndReleasedOnce)
{
    must_run("mkdir /var/run/report");
    for (const auto &lock : kLocks) {
        const std::string name = lock.name, path = lock.path;
        EXPECT_EQ(lock.release(), -1);
        EXPECT_EQ(lock.take(), 0);
        EXPECT_EQ(report_locked(), lock.take == report_lock);
        EXPECT_FALSE(is_free(lock.path));
        EXPECT_EQ(lock.take(), -1);
        EXPECT_FALSE(is_free(lock.path));
        EXPECT_EQ(lock.release(), 0);
        EXPECT_TRUE(is_free(lock.path));
        EXPECT_EQ(report_locked(), 0);
        EXPECT_EQ(lock.release(), -1);
        EXPECT_THAT(
            logged(),
            ElementsAre(message(name + "_unlock", "unlocking " + path + " without locking"),
                        message(name + "_lock", "Locking " + path + " twice"),
                        message(name + "_unlock", "unlocking " + path + " without locking")));
    }
    EXPECT_EQ(run("stat -c %a /var/run/inform-profile.lock").output, "640\n");
}

TEST_F(Lock, WhatCannotBeOpenedCannotBeLocked)
{
    EXPECT_EQ(report_lock(), -1);
    EXPECT_FALSE(exists("/var/run/report"));
    file("/var/run/report", ""); // not a folder
    EXPECT_EQ(report_lock(), -1);
    EXPECT_EQ(report_locked(), 0);
    must_run("mkdir /var/run/inform-profile.lock");
    EXPECT_EQ(inform_profile_lock(), -1);
    EXPECT_THAT(logged(), ElementsAre(message("report_lock", "Can't open /var/run/report"),
                                      message("report_lock", "Can't open /var/run/report"),
                                      message("inform_profile_lock",
                                              "Can't open /var/run/inform-profile.lock")));
}

TEST_F(Lock, TheEndOfAProcessReleases)
{
    must_run("mkdir /var/run/report");
    for (const auto &lock : kLocks) {
        if (fork() == 0)
            _exit(lock.take());
        int status;
        wait(&status);
        EXPECT_EQ(status, 0);
        EXPECT_TRUE(is_free(lock.path));
    }
}

// Who finds the lock taken sleeps a second, and the others are mostly through by then.
TEST_F(Lock, ThreeProcessesTakeTwoHundredTurnsEach)
{
    must_run("mkdir /var/run/report");
    for (const auto &lock : kLocks) {
        for (int child = 0; child < 3; ++child) {
            if (fork() != 0)
                continue;
            for (int turn = 0; turn < 200; ++turn)
                if (lock.take() != 0 || !is_alone("/tmp/alone") || lock.release() != 0)
                    _exit(1);
            _exit(0);
        }
        for (int child = 0; child < 3; ++child) {
            int status;
            wait(&status);
            EXPECT_EQ(status, 0) << lock.name;
        }
    }
    EXPECT_THAT(logged(), ElementsAre());
}

#include <zorv/lock.h>

#include <fcntl.h>

#include "core/log_gate.h"
#include "core/own.h"
#include "core/pause.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "statistics";
constexpr char kReport[] = "/var/run/report";
constexpr char kInformProfile[] = "/var/run/inform-profile.lock";
constexpr int kTries = 11;

// Set while this process holds the lock. Plain handles: the end of the process releases them.
constinit DIR *g_report = nullptr;
constinit int g_inform_profile = -1;

// A second follows every try that fails, the last one as well.
bool wait_for_lock(int fd)
{
    for (int i = 0; i < kTries; ++i) {
        if (flock(fd, LOCK_EX | LOCK_NB) == 0)
            return true;
        pause_for(1);
    }
    return false;
}

} // namespace

int report_lock()
{
    if (g_report) {
        log_error("Locking %s twice", kReport);
        return -1;
    }
    Dir folder(opendir(kReport));
    if (!folder) {
        log_error("Can't open %s", kReport);
        return -1;
    }
    if (!wait_for_lock(dirfd(folder.get()))) {
        log_error("couldn't lock %s", kReport);
        return -1;
    }
    g_report = folder.release();
    return 0;
}

int report_unlock()
{
    const Dir folder(std::exchange(g_report, nullptr));
    if (!folder) {
        log_error("unlocking %s without locking", kReport);
        return -1;
    }
    flock(dirfd(folder.get()), LOCK_UN);
    return 0;
}

int report_locked()
{
    return g_report != nullptr;
}

int inform_profile_lock()
{
    if (g_inform_profile >= 0) {
        log_error("Locking %s twice", kInformProfile);
        return -1;
    }
    Fd file(open(kInformProfile, O_RDWR | O_CREAT | O_CLOEXEC, 0640));
    if (!file) {
        log_error("Can't open %s", kInformProfile);
        return -1;
    }
    if (!wait_for_lock(file.get())) {
        log_error("couldn't lock %s", kInformProfile);
        return -1;
    }
    g_inform_profile = file.release();
    return 0;
}

int inform_profile_unlock()
{
    const Fd file(std::exchange(g_inform_profile, -1));
    if (!file) {
        log_error("unlocking %s without locking", kInformProfile);
        return -1;
    }
    flock(file.get(), LOCK_UN);
    return 0;
}

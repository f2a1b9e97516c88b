// crash_prune.cpp - removing logs that are done with; the library removes none.
//
// A process that walks the store may have read the name of a log before the log went, and would
// take the meta it then misses for that of a new log. A marker keeps walks away from a log, so the
// archive and the meta go first, under the lock of the directory, and the marker only when no
// process has the directory open any more.
#include <algorithm>
#include <cerrno>
#include <iterator>
#include <optional>
#include <tuple>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/ask.h"
#include "base/cli.h"
#include "base/numbers.h"
#include "core/pause.h"
#include "crash.h"
#include "exec/shell.h"
#include "telemetry/crash_store.h"

namespace ctl {
namespace {

constexpr int kAttempts = 10; // at a store in use, a second apart, as the library makes
constexpr time_t kDay = 86400;
constexpr char kProcesses[] = "/proc";

struct PruneArgs {
    std::optional<size_t> keep;
    std::optional<uint64_t> max_size;
    std::optional<unsigned> max_age;
    bool unfinished = false, dry_run = false;
};

using Logs = std::vector<CrashLog>;

bool may_go(const CrashLog &log, const PruneArgs &args)
{
    return is_settled(log) && (log.marked || args.unfinished);
}

// By name where the time is the same.
bool is_older(const CrashLog &a, const CrashLog &b)
{
    return std::tie(a.modified, a.name) < std::tie(b.modified, b.name);
}

// The oldest first, as many as have to go.
Logs choose(const Logs &logs, const PruneArgs &args)
{
    Logs chosen;
    std::copy_if(logs.begin(), logs.end(), std::back_inserter(chosen),
                 [&args](const CrashLog &log) { return may_go(log, args); });
    std::sort(chosen.begin(), chosen.end(), is_older);
    size_t count = 0;
    if (args.keep)
        count = chosen.size() - std::min(*args.keep, chosen.size());
    if (args.max_size) {
        auto size = static_cast<uint64_t>(total_size(logs));
        for (; count < chosen.size() && size > *args.max_size; ++count)
            size -= static_cast<uint64_t>(chosen[count].size);
    }
    if (args.max_age) {
        const time_t oldest = time(nullptr) - static_cast<time_t>(*args.max_age) * kDay;
        while (count < chosen.size() && chosen[count].modified < oldest)
            ++count;
    }
    chosen.resize(count);
    return chosen;
}

// The store's directory under its lock, which no walk opens a meta without.
class Store {
public:
    Store() : folder_(open(zorv::kLogs, O_RDONLY | O_DIRECTORY | O_CLOEXEC))
    {
        if (!folder_)
            throw io_failure(zorv::kLogs, errno);
    }

    bool lock() const { return flock(folder_.get(), LOCK_EX | LOCK_NB) == 0; }
    void unlock() const { flock(folder_.get(), LOCK_UN); }

    // Whether a process but this one has the directory open. Throws when one does not tell.
    bool is_walked() const
    {
        bool is_listed = false; // this one, or the list is of no worth
        for (const std::string &name : names_in(kProcesses)) {
            pid_t pid;
            if (!parse_number(name, pid))
                continue;
            if (pid == getpid())
                is_listed = true;
            else if (is_open_in(kProcesses + ('/' + name) + "/fd"))
                return true;
        }
        if (!is_listed)
            throw Failure(Exit::failed, std::string(kProcesses) + ": lists no processes");
        return false;
    }

private:
    bool is_same(const struct stat &other) const
    {
        struct stat own;
        if (fstat(folder_.get(), &own) != 0)
            throw io_failure(zorv::kLogs, errno);
        return own.st_dev == other.st_dev && own.st_ino == other.st_ino;
    }

    // Whether one of a process's descriptors is the directory.
    bool is_open_in(const std::string &descriptors) const
    {
        const zorv::Dir entries(opendir(descriptors.c_str()));
        const dirent *entry = nullptr;
        while (entries && (errno = 0, entry = readdir(entries.get()))) {
            struct stat info;
            if (fstatat(dirfd(entries.get()), entry->d_name, &info, 0) == 0 && is_same(info))
                return true;
            if (errno != 0 && errno != ENOENT) // it was closed
                break;
        }
        if (errno != 0 && errno != ENOENT && errno != ESRCH) // the process has ended
            throw io_failure(descriptors, errno);
        return false;
    }

    zorv::Fd folder_;
};

// While the store is locked nobody gets the lock of a meta that is free now.
bool is_in_work(const std::string &name)
{
    const std::string path = zorv::kMetas + name;
    zorv::Fd meta(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!meta)
        expect_answer(path, errno);
    return meta && !zorv::locked(std::move(meta));
}

void remove_file(const std::string &path)
{
    if (unlink(path.c_str()) != 0 && errno != ENOENT)
        throw io_failure(path, errno);
}

// Markers that keep walks away from logs that had none; undone unless they are kept.
class Markers {
public:
    Markers() = default;
    Markers(const Markers &) = delete;
    Markers &operator=(const Markers &) = delete;
    ~Markers()
    {
        for (const std::string &path : made_)
            unlink(path.c_str());
    }

    void make(const CrashLog &log)
    {
        const std::string path = zorv::kMarkers + log.name;
        if (log.marked)
            return;
        const zorv::Fd marker(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
        if (!marker)
            throw io_failure(path, errno);
        made_.push_back(path);
    }

    void keep() { made_.clear(); }

private:
    std::vector<std::string> made_;
};

// Names in a folder whose log is not in the store.
std::vector<std::string> list_leftovers(const char *path)
{
    std::vector<std::string> names;
    if (!exists(path))
        return names;
    for (const std::string &name : names_in(path)) {
        struct stat info;
        if (lstat((path + name).c_str(), &info) == 0 && !S_ISDIR(info.st_mode) &&
            !exists(zorv::kLogs + name))
            names.push_back(name);
    }
    return names;
}

// What is left of logs that are gone, those just removed and those of a prune that was killed.
// Returns how many files went.
size_t sweep(const Store &store)
{
    size_t count = 0;
    for (const std::string &name : list_leftovers(zorv::kMetas)) {
        if (is_in_work(name))
            continue;
        remove_file(zorv::kMetas + name);
        ++count;
    }
    const std::vector<std::string> markers = list_leftovers(zorv::kMarkers);
    if (markers.empty() || store.is_walked())
        return count;
    for (const std::string &name : markers)
        remove_file(zorv::kMarkers + name);
    return count + markers.size();
}

// Those that still may go, now that the store is locked.
Logs confirm(const Logs &chosen, const PruneArgs &args)
{
    Logs confirmed;
    for (CrashLog log : chosen) {
        update(log);
        if (!is_in_work(log.name) && may_go(log, args))
            confirmed.push_back(log);
    }
    return confirmed;
}

// Removes them while nobody else is at the store; false when somebody is.
bool try_to_remove(const Store &store, const PruneArgs &args, Logs &chosen, size_t &files)
{
    const Logs confirmed = confirm(chosen, args);
    Markers markers;
    for (const CrashLog &log : confirmed)
        markers.make(log);
    if (store.is_walked())
        return false;
    markers.keep();
    for (const CrashLog &log : confirmed) {
        remove_file(zorv::kLogs + log.name);
        ++files;
    }
    files += sweep(store);
    chosen = confirmed;
    return true;
}

// Waits for others up to ten seconds. Returns how many files went.
size_t remove_logs(const PruneArgs &args, Logs &chosen)
{
    const Store store;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        if (attempt > 0)
            zorv::pause_for(1);
        if (!store.lock())
            continue;
        size_t files = 0;
        const bool done = try_to_remove(store, args, chosen, files);
        store.unlock();
        if (done)
            return files;
    }
    throw Failure(Exit::refused, std::string(zorv::kLogs) + ": in use by another process");
}

void save_config()
{
    const CommandsToStderr aside;
    if (zorv::run_shell("syswrapper.sh save-config") != 0)
        throw Failure(Exit::failed, "removed, but the configuration could not be saved: the logs "
                                    "will be back after a reboot");
}

void prune(const PruneArgs &args, Reply &reply)
{
    if (!args.keep && !args.max_size && !args.max_age)
        throw Misuse("one of --keep, --max-size and --max-age is needed");
    const Logs logs = list_logs();
    Logs chosen = choose(logs, args);
    const size_t wanted = chosen.size();
    if (!args.dry_run && exists(zorv::kLogs) && remove_logs(args, chosen) > 0)
        save_config();
    const auto unfinished = std::count_if(logs.begin(), logs.end(), [](const CrashLog &log) {
        return is_settled(log) && !log.marked;
    });
    reply.table("removed", logs_value(chosen), {"name", "size", "state"});
    reply.document.set("dry_run", args.dry_run)
        .set("size", total_size(chosen))
        .set("in_work", wanted - chosen.size())
        .set("unfinished", args.unfinished ? 0 : unfinished);
    reply.line(format("%zu of %zu logs, %jd bytes%s", chosen.size(), logs.size(),
                      static_cast<intmax_t>(total_size(chosen)),
                      args.dry_run ? ", would go" : " removed"));
    if (unfinished > 0 && !args.unfinished)
        reply.line(
            format("%td kept for the local management, which has not finished them", unfinished));
}

constexpr Option kOptions[] = {
    option<&PruneArgs::keep>("--keep", "How many of them to keep")
        .excludes("--max-size", "--max-age"),
    option<&PruneArgs::max_size>("--max-size", "Bytes that the whole store may have")
        .excludes("--max-age"),
    option<&PruneArgs::max_age>("--max-age", "Days that they may be old"),
    option<&PruneArgs::unfinished>("--unfinished", "Also those that the local management has not"),
    option<&PruneArgs::dry_run>("--dry-run", "Show what would go, and remove nothing"),
};

} // namespace

constexpr Verb kCrashPrune[1] = {
    verb<prune>("prune",
                "Remove the oldest logs that the service has, or never gets, and that are finished",
                "zorvctl crash prune --max-size 1000000 --dry-run", kOptions),
};

} // namespace ctl

// lock.cpp - the locks between processes: a command under one of them, and who holds them.
#include <zorv/lock.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <optional>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/cli.h"
#include "base/numbers.h"
#include "base/text_file.h"
#include "base/words.h"
#include "core/own.h"

namespace ctl {
namespace {

struct RunArgs {
    std::vector<std::string> command;
};

struct StatusArgs {
    std::optional<int> lock; // a place in kLocks
};

struct Lock {
    const char *name;
    const char *path;
    int (*take)();
    int (*release)();
};

constexpr Lock kReport = {"report", "/var/run/report", report_lock, report_unlock};
constexpr Lock kInform = {"inform", "/var/run/inform-profile.lock", inform_profile_lock,
                          inform_profile_unlock};
constexpr const Lock *kLocks[] = {&kReport, &kInform};

// Held until the end of the verb, and of the command, which has the descriptor, too: a lock of
// flock(2) goes with the last one.
class Held {
public:
    explicit Held(const Lock &lock) : lock_(lock)
    {
        struct stat info;
        if (&lock == &kReport && stat(lock.path, &info) != 0)
            throw Failure(Exit::unavailable, std::string(lock.path) + ": " + strerror(errno));
        if (lock.take() != 0)
            throw Failure(Exit::refused, std::string(lock.path) + ": not to be had");
        if (fcntl(descriptor_of(lock.path), F_SETFD, 0) != 0)
            throw io_failure(lock.path, errno);
    }
    Held(const Held &) = delete;
    Held &operator=(const Held &) = delete;
    ~Held() { lock_.release(); }

private:
    // The library's own: no other one of that path is closed by exec, since we came by it. It took
    // the lowest number that was free, so the next one is beyond it.
    static int descriptor_of(const char *path)
    {
        struct stat wanted, info;
        if (stat(path, &wanted) != 0)
            return -1;
        const zorv::Fd next(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0));
        for (int fd = STDERR_FILENO + 1; fd < next.get(); fd++)
            if (fstat(fd, &info) == 0 && info.st_dev == wanted.st_dev &&
                info.st_ino == wanted.st_ino && fcntl(fd, F_GETFD) == FD_CLOEXEC)
                return fd;
        return -1;
    }

    const Lock &lock_;
};

// Signals that wait for us to take them; the command is started without that.
class WaitingSignals {
public:
    WaitingSignals()
    {
        signal(SIGCHLD, SIG_DFL); // ignored, it would not come
        sigemptyset(&set_);
        for (const int number : {SIGCHLD, SIGHUP, SIGINT, SIGQUIT, SIGTERM})
            sigaddset(&set_, number);
        sigprocmask(SIG_BLOCK, &set_, &old_);
        posix_spawnattr_init(&attributes_);
        posix_spawnattr_setsigmask(&attributes_, &old_);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK);
    }
    WaitingSignals(const WaitingSignals &) = delete;
    WaitingSignals &operator=(const WaitingSignals &) = delete;
    ~WaitingSignals()
    {
        posix_spawnattr_destroy(&attributes_);
        sigprocmask(SIG_SETMASK, &old_, nullptr);
    }

    const posix_spawnattr_t *attributes() const { return &attributes_; }

    // The next one.
    int take() const { return sigwaitinfo(&set_, nullptr); }

private:
    sigset_t set_, old_;
    posix_spawnattr_t attributes_;
};

// Waits for the child's end. What the terminal sends is for the child alone, which gets it, too;
// what others send us, to end us, is passed on.
int wait_for(pid_t child, const WaitingSignals &signals)
{
    int status;
    for (;;) {
        const int number = signals.take();
        if (number == SIGTERM || number == SIGHUP)
            kill(child, number);
        const pid_t ended = waitpid(child, &status, WNOHANG);
        if (ended < 0)
            throw io_failure("the command", errno);
        if (ended == child)
            return status;
    }
}

// Runs the command; its standard output goes to ours, or to standard error for the sake of JSON.
// Returns what the shell would call its exit status.
int run_command(const std::vector<std::string> &command, bool json)
{
    std::vector<char *> words;
    words.reserve(command.size() + 1);
    for (const auto &word : command)
        words.push_back(const_cast<char *>(word.c_str()));
    words.push_back(nullptr);

    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    if (json)
        posix_spawn_file_actions_adddup2(&files, STDERR_FILENO, STDOUT_FILENO);
    const WaitingSignals signals;
    pid_t child;
    const int rc =
        posix_spawnp(&child, words[0], &files, signals.attributes(), words.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    if (rc != 0)
        throw io_failure(command[0], rc);
    const int status = wait_for(child, signals);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

template <const Lock &lock>
void run_locked(const RunArgs &args, Reply &reply)
{
    const Held held(lock);
    const int status = run_command(args.command, reply.json());
    reply.document.set("lock", lock.name).set("path", lock.path).set("exit_status", status);
    reply.exit = static_cast<Exit>(status); // the command's own, whatever it means there
}

// The holder as /proc/locks tells: "1: FLOCK  ADVISORY  WRITE 212 00:1a:34 0 EOF". 0 is for nobody,
// -1 for a process that cannot be seen from here.
int find_holder(const struct stat &file)
{
    const std::string table = read_file("/proc/locks");
    const std::string wanted = format("%02x:%02x:%ju", major(file.st_dev), minor(file.st_dev),
                                      static_cast<uintmax_t>(file.st_ino));
    std::string_view lines = table;
    for (std::string_view line; !(line = take_word(lines, "\n")).empty();) {
        std::string_view words[6]; // number, kind, mode, access, process, place
        for (std::string_view &word : words)
            word = take_word(line);
        int pid;
        if (words[1] == "FLOCK" && words[5] == wanted && parse_number(words[4], pid))
            return pid > 0 ? pid : -1;
    }
    return 0;
}

// Whether somebody holds it whom that table does not show: a container's has other numbers of
// devices, and leaves out processes. A process that wants the lock at this very moment tries again.
bool is_taken(const char *path)
{
    const zorv::Fd file(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!file && errno == ENOENT)
        return false;
    if (file && flock(file.get(), LOCK_SH | LOCK_NB) == 0)
        return false;
    if (errno != EWOULDBLOCK)
        throw io_failure(path, errno);
    return true;
}

Value process_name(int pid)
{
    const zorv::File file(fopen(format("/proc/%d/comm", pid).c_str(), "re"));
    char name[64]; // the kernel's have 16
    if (!file || !fgets(name, sizeof name, file.get()))
        return Value();
    return Value(std::string_view(name, strcspn(name, "\n")));
}

// Adds a row on a lock; tells whether somebody holds it.
bool add_lock(const Lock &lock, Value &list)
{
    struct stat file;
    const bool exists = stat(lock.path, &file) == 0;
    if (!exists && errno != ENOENT)
        throw io_failure(lock.path, errno);
    int holder = exists ? find_holder(file) : 0;
    if (holder == 0 && is_taken(lock.path))
        holder = -1;
    const char *const state = holder != 0 ? "held" : exists ? "free" : "free, no such path";
    Value row = Value::object().set("lock", lock.name).set("path", lock.path).set("state", state);
    if (holder > 0)
        row.set("pid", holder).set("process", process_name(holder));
    list.add(row);
    return holder != 0;
}

void show_locks(const StatusArgs &args, Reply &reply)
{
    Value list = Value::list();
    if (!args.lock)
        for (const Lock *const lock : kLocks)
            add_lock(*lock, list);
    else if (!add_lock(*kLocks[*args.lock], list))
        reply.exit = Exit::no;
    reply.table("locks", list, {"lock", "path", "state", "pid", "process"});
}

constexpr Option kRun[] = {
    option<&RunArgs::command>("COMMAND", "The command, behind --").required(),
};

constexpr Option kStatus[] = {
    option<&StatusArgs::lock>("NAME", "report or inform, both unless given").words("report|inform"),
};

constexpr Verb kVerbs[] = {
    verb<run_locked<kReport>>("report",
                              "Run a command under the report lock; its exit status is passed on",
                              "zorvctl lock report -- make-report --all", kRun),
    verb<run_locked<kInform>>("inform",
                              "Run a command under the inform-profile lock, in the same way",
                              "zorvctl lock inform -- cat /var/run/inform-profile", kRun),
    verb<show_locks>("status", "Tell who holds the locks; of one NAME, whether somebody does",
                     "zorvctl lock status report", kStatus),
};

} // namespace

extern const Family lock_family = {"lock", "Locks with which processes take turns", {kVerbs}};

} // namespace ctl

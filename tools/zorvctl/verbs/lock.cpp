// lock.cpp - the locks between processes: a command under one of them, and who holds them.
#include <zorv/lock.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <vector>

#include <spawn.h>
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

struct Lock {
    const char *name;
    const char *path;
    int (*take)();
    int (*release)();
};

constexpr Lock kReport = {"report", "/var/run/report", report_lock, report_unlock};
constexpr Lock kInform = {"inform", "/var/run/inform-profile.lock", inform_profile_lock,
                          inform_profile_unlock};

// Held until the end of the verb.
class Held {
public:
    explicit Held(const Lock &lock) : lock_(lock)
    {
        struct stat info;
        if (&lock == &kReport && stat(lock.path, &info) != 0)
            throw Failure(Exit::unavailable, std::string(lock.path) + ": " + strerror(errno));
        if (lock.take() != 0)
            throw Failure(Exit::refused, std::string(lock.path) + ": not to be had");
    }
    Held(const Held &) = delete;
    Held &operator=(const Held &) = delete;
    ~Held() { lock_.release(); }

private:
    const Lock &lock_;
};

// While the command runs, what the terminal sends is for it; we wait for its end with the lock.
class LeaveSignals {
public:
    LeaveSignals() : interrupt_(signal(SIGINT, SIG_IGN)), quit_(signal(SIGQUIT, SIG_IGN))
    {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGINT);
        sigaddset(&signals, SIGQUIT);
        posix_spawnattr_init(&attributes_);
        posix_spawnattr_setsigdefault(&attributes_, &signals);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF);
    }
    LeaveSignals(const LeaveSignals &) = delete;
    LeaveSignals &operator=(const LeaveSignals &) = delete;
    ~LeaveSignals()
    {
        posix_spawnattr_destroy(&attributes_);
        signal(SIGINT, interrupt_);
        signal(SIGQUIT, quit_);
    }
    const posix_spawnattr_t *attributes() const { return &attributes_; }

private:
    void (*interrupt_)(int);
    void (*quit_)(int);
    posix_spawnattr_t attributes_;
};

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
    const LeaveSignals signals;
    pid_t child;
    const int rc =
        posix_spawnp(&child, words[0], &files, signals.attributes(), words.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    if (rc != 0)
        throw io_failure(command[0], rc);
    int status;
    while (waitpid(child, &status, 0) < 0)
        if (errno != EINTR)
            throw io_failure(command[0], errno);
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

Value describe(const Lock &lock)
{
    struct stat file;
    Value row = Value::object().set("lock", lock.name).set("path", lock.path);
    if (stat(lock.path, &file) != 0)
        return row.set("state", errno == ENOENT ? "free, no such path" : strerror(errno));
    const int holder = find_holder(file);
    row.set("state", holder == 0 ? "free" : "held");
    if (holder <= 0)
        return row;
    row.set("pid", holder);
    const zorv::File file_of_name(fopen(format("/proc/%d/comm", holder).c_str(), "re"));
    char name[64]; // the kernel's have 16
    if (!file_of_name || !fgets(name, sizeof name, file_of_name.get()))
        return row.set("process", Value());
    return row.set("process", std::string_view(name, strcspn(name, "\n")));
}

void show_locks(const NoArgs &, Reply &reply)
{
    const Value list = Value::list().add(describe(kReport)).add(describe(kInform));
    reply.table("locks", list, {"lock", "path", "state", "pid", "process"});
}

constexpr Option kRun[] = {
    option<&RunArgs::command>("COMMAND", "The command, behind --").required(),
};

constexpr Verb kVerbs[] = {
    verb<run_locked<kReport>>("report",
                              "Run a command under the report lock; its exit status is passed on",
                              "zorvctl lock report -- make-report --all", kRun),
    verb<run_locked<kInform>>("inform",
                              "Run a command under the inform-profile lock, in the same way",
                              "zorvctl lock inform -- cat /var/run/inform-profile", kRun),
    verb<show_locks>("status", "Tell who holds the locks", "zorvctl lock status"),
};

} // namespace

extern const Family lock_family = {"lock", "Locks with which processes take turns", {kVerbs}};

} // namespace ctl

#include "support/torture.h"

#include <cstddef>
#include <utility>

#include <fnmatch.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/uio.h>

#include "support/faults.h"

namespace {

struct Kind {
    const char *name;
    std::vector<long> calls;
    std::vector<int> errors;
};

#ifndef SYS_open // newer architectures have the newer calls alone
#define SYS_open SYS_openat
#define SYS_rename SYS_renameat
#define SYS_fork SYS_clone
#define SYS_vfork SYS_clone
#endif

const std::vector<Kind> kKinds = {
    {"open", {SYS_open, SYS_openat}, {EINTR, EACCES, EMFILE, EIO, ENOMEM}},
    {"rename", {SYS_rename, SYS_renameat, SYS_renameat2}, {EIO, ENOSPC, EACCES}},
    {"fork", {SYS_fork, SYS_vfork, SYS_clone, SYS_clone3}, {EAGAIN, ENOMEM}},
    {"read", {SYS_read, SYS_pread64}, {EINTR, EIO}},
    {"write", {SYS_write, SYS_writev, SYS_pwrite64}, {EINTR, EIO, ENOSPC}},
    {"close", {SYS_close}, {EINTR, EIO}},
    {"fsync", {SYS_fsync, SYS_fdatasync}, {EINTR, EIO, ENOSPC}},
    {"flock", {SYS_flock}, {EINTR, ENOLCK}},
    {"getdents", {SYS_getdents64}, {EIO, ENOMEM}},
    {"ioctl", {SYS_ioctl}, {EINTR, EIO, ENOMEM}},
    {"socket", {SYS_socket}, {EMFILE, ENOMEM, EACCES}},
    {"send", {SYS_sendto, SYS_sendmsg}, {EINTR, EIO, ENOMEM, EACCES}},
    {"recv", {SYS_recvfrom, SYS_recvmsg}, {EINTR, EIO, ENOMEM}},
    {"exec", {SYS_execve, SYS_execveat}, {EACCES, EIO, ENOMEM}},
};

// What counts lines, or says what ran, writes below the folder that this names.
constexpr char kRecord[] = "GCOV_PREFIX";

constexpr int kPatience = 20'000; // milliseconds that a run may take

FaultPlan *g_plan;
int g_plan_fd;
int g_closed;                         // stands in for what close() closes and says it could not
std::map<const Kind *, long> g_calls; // of the last run that was attended
std::map<std::string, long> g_total;  // faults, by kind, to be told
bool g_is_child;

struct Fault {
    const Kind *kind = nullptr; // NULL: allocations
    int error = 0;
    long first = 0, last = 0; // of its calls; 0: none, all calls are counted
};

std::string shown(const Fault &fault)
{
    const std::string n = " " + std::to_string(fault.first);
    if (!fault.kind)
        return "allocation" + n + (fault.last > fault.first ? " and all behind it" : "");
    return fault.kind->name + n + ": " + strerrorname_np(fault.error);
}

// Has the kernel ask at a descriptor, which it returns, before these calls.
int install_filter()
{
    std::vector<sock_filter> code = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
    for (const Kind &kind : kKinds)
        for (const long call : kind.calls) {
            code.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(call), 0, 1));
            code.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF));
        }
    code.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    sock_fprog program = {static_cast<unsigned short>(code.size()), code.data()};
    check(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), "PR_SET_NO_NEW_PRIVS");
    return static_cast<int>(check(
        syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &program),
        "seccomp"));
}

int count_descriptors()
{
    struct stat closed, other;
    fstat(g_closed, &closed);
    int count = 0;
    for (int fd = 0; fd < 256; ++fd)
        if (fstat(fd, &other) == 0)
            count += other.st_ino != closed.st_ino || other.st_dev != closed.st_dev ? 1 : 0;
    return count;
}

// In the child: the scenario with its fault.
void suffer(const Torture::Row &row, bool recorded)
{
    if (!recorded)
        unsetenv(kRecord);
    g_is_child = true;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    row.prepare();
    Device::logged();
    g_followed = g_plan;
    const int before = count_descriptors();
    g_plan->listener = install_filter();
    while (!g_plan->attended)
        sched_yield();
    g_plan->armed = true;
    const std::string text = row.scenario();
    g_plan->armed = false;
    for (int left = 10; (g_plan->descriptors = count_descriptors() - before - 1) > 0 && left > 0;
         --left)
        usleep(10'000); // a resolver's thread that nobody waits for closes its own
    g_plan->blocks = library_blocks();
    text.copy(g_plan->result, sizeof g_plan->result - 1);
    g_plan->ended = true;
    if (recorded)
        exit(0); // which counts the lines that ran
    _exit(0);
}

// Answers for the kernel: lets a call through, or fails it when its turn has come. Programs that
// the scenario starts are left alone.
class Attendant {
public:
    Attendant(int listener, const Fault &fault) : listener_(listener), fault_(fault) {}
    ~Attendant() { close(listener_); }

    void answer()
    {
        seccomp_notif asked = {};
        if (ioctl(listener_, SECCOMP_IOCTL_NOTIF_RECV, &asked) != 0)
            return; // whoever asked is gone
        seccomp_notif_resp reply = {asked.id, 0, 0, SECCOMP_USER_NOTIF_FLAG_CONTINUE};
        if (fails(asked)) {
            g_plan->hit = true;
            reply = {asked.id, 0, -fault_.error, 0};
            if (asked.data.nr == SYS_close) { // is done, whatever it says; its number lives on
                seccomp_notif_addfd other = {asked.id, SECCOMP_ADDFD_FLAG_SETFD,
                                             static_cast<unsigned>(g_closed),
                                             static_cast<unsigned>(asked.data.args[0]), 0};
                ioctl(listener_, SECCOMP_IOCTL_NOTIF_ADDFD, &other);
            }
        } else if (g_plan->armed && asked.data.nr == SYS_execve) {
            strangers_.insert(asked.pid);
        }
        ioctl(listener_, SECCOMP_IOCTL_NOTIF_SEND, &reply);
    }

private:
    bool fails(const seccomp_notif &asked)
    {
        if (!g_plan->armed || static_cast<pid_t>(asked.pid) == g_plan->spared ||
            strangers_.contains(asked.pid))
            return false;
        const auto fd = static_cast<int>(asked.data.args[0]);
        if (asked.data.nr == SYS_write && (fd == fileno(stderr) || fd == STDERR_FILENO))
            return false; // or nothing would tell what happened
        for (const Kind &kind : kKinds)
            if (std::ranges::count(kind.calls, asked.data.nr) > 0 && !is_record(asked, kind)) {
                const long n = ++g_calls[&kind];
                return &kind == fault_.kind && n >= fault_.first && n <= fault_.last;
            }
        return false;
    }

    // Opening, writing and closing a record of what ran is none of the scenario's calls.
    bool is_record(const seccomp_notif &asked, const Kind &kind)
    {
        const char *const folder = getenv(kRecord);
        if (!folder || &kind != &kKinds.front())
            return recording_[asked.pid] > 0 && recording_[asked.pid]-- > 0;
        std::string path(strlen(folder), '\0');
        const auto at = asked.data.args[asked.data.nr == SYS_openat ? 1 : 0];
        iovec own = {path.data(), path.size()}, theirs = {nullptr, path.size()};
        memcpy(&theirs.iov_base, &at, sizeof theirs.iov_base); // in the other process
        process_vm_readv(static_cast<pid_t>(asked.pid), &own, 1, &theirs, 1, 0);
        recording_[asked.pid] = path == folder ? 2 : 0;
        return path == folder;
    }

    int listener_;
    const Fault &fault_;
    std::set<unsigned> strangers_;
    std::map<unsigned, int> recording_; // calls to come, by process
};

// Answers until the child ends, and for those that it left behind a little longer. Returns its
// status as wait() has it; -1 when it did not end.
int attend(pid_t child, const Fault &fault)
{
    const auto pidfd = static_cast<int>(check(syscall(SYS_pidfd_open, child, 0), "pidfd_open"));
    pollfd waited[] = {{pidfd, POLLIN, 0}, {-1, POLLIN, 0}};
    while (g_plan->listener == 0 && poll(waited, 1, 0) == 0)
        ;
    // The filter's descriptor in the child as one of this process; -1 when the child has ended.
    waited[1].fd = static_cast<int>(syscall(SYS_pidfd_getfd, pidfd, g_plan->listener.load(), 0));
    Attendant attendant(waited[1].fd, fault);
    g_plan->attended = true;
    int status = -1;
    while ((waited[0].fd >= 0 || waited[1].fd >= 0) &&
           poll(waited, 2, waited[0].fd < 0 ? 100 : kPatience) > 0) {
        if ((waited[1].revents & POLLIN) != 0)
            attendant.answer();
        else if (waited[1].revents != 0)
            waited[1].fd = -1; // nobody is left to ask
        if ((waited[0].revents & POLLIN) != 0) {
            check(waitpid(child, &status, 0), "waitpid");
            waited[0].fd = -1;
        }
    }
    close(pidfd);
    if (status == -1) {
        kill(child, SIGKILL);
        check(waitpid(child, nullptr, 0), "waitpid");
    }
    return status;
}

// "[error] libzorv_url.url_parse(): 77: malloc(9) failed" is "url_parse: #: malloc(#) failed".
std::string joined(const std::vector<std::string> &lines)
{
    static const std::regex place("^\\[error\\] [^.]*\\.(\\w+)\\(\\): "), number("[0-9]+");
    std::string text, last;
    for (const auto &line : lines) {
        const auto plain = std::regex_replace(std::regex_replace(line, place, "$1: "), number, "#");
        if (plain != last && !plain.starts_with("profiling:")) // it cannot count in the device
            text += (text.empty() ? "" : "; ") + plain;
        last = plain;
    }
    return text;
}

struct Run {
    std::string result, lines, damage;
    long blocks;
    int descriptors;
};

Run run(const Torture::Row &row, const Fault &fault, bool recorded)
{
    new (g_plan) FaultPlan();
    g_plan->allocations = !fault.kind;
    g_plan->first = fault.first;
    g_plan->last = fault.last;
    g_calls.clear();
    fflush(nullptr);
    const pid_t child = check(fork(), "fork");
    if (child == 0)
        suffer(row, recorded);
    const int status = attend(child, fault);
    std::string damage = g_plan->ended ? "" : " ENDS with status " + std::to_string(status);
    return {g_plan->result, joined(Device::logged()), status == -1 ? " HANGS" : damage,
            g_plan->blocks, g_plan->descriptors};
}

// Damage is not among what "*" stands for.
bool matches(const std::string &pattern, const std::string &text)
{
    for (const char *const damage : {" HANGS", " ENDS", " LEAVES"})
        if (pattern.find(damage) == pattern.npos && text.find(damage) != text.npos)
            return false;
    static const std::regex special(R"([?[\\])"); // of a shell's patterns
    const std::string shells = std::regex_replace(pattern, special, R"(\$&)");
    return fnmatch(shells.c_str(), text.c_str(), 0) == 0;
}

// All runs of a row: the other outcomes, each with the first fault that it came of.
class Rack {
public:
    explicit Rack(const Torture::Row &row) : row_(row), undisturbed_(run(row, {}, getenv(kRecord)))
    {
        EXPECT_EQ(undisturbed_.lines + undisturbed_.damage, "") << row.name << " undisturbed";
        const long allocations = g_plan->count;
        const auto calls = g_calls;
        for (const bool behind : {false, true})
            fail_each({nullptr, ENOMEM}, allocations, behind);
        for (const auto &[kind, count] : calls)
            for (const int error : kind->errors)
                fail_each({kind, error}, count, false);
    }

    void judge() const
    {
        std::set<std::string> patterns(row_.outcomes.begin(), row_.outcomes.end()), fitting;
        patterns.insert(row_.known.begin(), row_.known.end());
        for (const auto &[outcome, fault] : outcomes_) {
            const auto fits = [&text = outcome](const auto &p) { return matches(p, text); };
            EXPECT_TRUE(std::ranges::any_of(patterns, fits))
                << row_.name << ", " << fault << ", has another outcome:\n"
                << outcome;
            std::ranges::copy_if(patterns, std::inserter(fitting, fitting.end()), fits);
        }
#ifndef __SANITIZE_ADDRESS__ // whose own calls and allocations come in between
        for (const char *const pattern : row_.known)
            EXPECT_TRUE(fitting.contains(pattern))
                << row_.name << ": known, and comes no more: " << pattern;
        for (const char *const message : row_.messages)
            EXPECT_NE(said_.find(message), said_.npos) << row_.name << ": not logged: " << message;
#endif
    }

private:
    void fail_each(Fault fault, long count, bool behind)
    {
        const long most = std::min(count, row_.most);
        for (long i = 0; i < most; ++i) {
            fault.first = 1 + i * count / most;
            fault.last = behind ? __LONG_MAX__ : fault.first;
            Run disturbed = run(row_, fault, false);
            g_total[fault.kind ? fault.kind->name : "allocation"] += g_plan->hit ? 1 : 0;
            if (disturbed.blocks > undisturbed_.blocks)
                disturbed.damage += " LEAVES blocks";
            if (disturbed.descriptors > undisturbed_.descriptors)
                disturbed.damage += " LEAVES descriptors";
            if (seen_.insert(disturbed.result + disturbed.lines).second && getenv(kRecord))
                run(row_, fault, true);
            said_ += disturbed.lines + "\n";
            const std::string lines = disturbed.lines.empty() ? "" : ": " + disturbed.lines;
            if (disturbed.result + disturbed.damage != undisturbed_.result)
                outcomes_.emplace(disturbed.result + lines + disturbed.damage, shown(fault));
        }
    }

    const Torture::Row &row_;
    const Run undisturbed_;
    std::map<std::string, std::string> outcomes_; // without the undisturbed one
    std::set<std::string> seen_;                  // outcomes
    std::string said_;                            // all lines that came
};

} // namespace

// LeakSanitizer asks: children of the runner count for themselves.
extern "C" int __lsan_is_turned_off() // NOLINT(bugprone-reserved-identifier,cert-dcl*): its name
{
    return g_is_child ? 1 : 0;
}

void Torture::torture(const std::vector<Row> &rows)
{
    if (!g_plan) {
        g_plan_fd = memory_file("plan");
        g_closed = memory_file("closed");
        check(ftruncate(g_plan_fd, sizeof *g_plan), "ftruncate");
        g_plan = share_plan(g_plan_fd);
    }
    for (const Row &row : rows)
        Rack(row).judge();
    for (const auto &[kind, count] : std::exchange(g_total, {}))
        printf("faults: %ld %s\n", count, kind.c_str());
}

void Torture::settle()
{
    g_plan->armed = false;
}

std::function<std::string()> Torture::command(const std::string &line)
{
    return [line] {
        settle(); // until zorvctl runs
        g_plan->spared = getpid();
        const int plan = check(fcntl(g_plan_fd, F_DUPFD, 0), "F_DUPFD");
        const Outcome outcome = run(kFaultsVariable + ("=" + std::to_string(plan)) +
                                    " LD_PRELOAD=" ZORV_FAULTS_LIBRARY
                                    " ASAN_OPTIONS=detect_leaks=0:verify_asan_link_order=0"
                                    " exec " +
                                    line);
        settle();
        close(plan);
        const std::regex prefix("(^|\n)zorvctl\\[[0-9]+\\]: ");
        fputs(std::regex_replace(outcome.errors, prefix, "$1").c_str(), stderr);
        const std::string output = outcome.output.empty() ? "" : " " + outcome.output;
        return "[" + std::to_string(outcome.status) + "]" + output;
    };
}

#include "support/torture.h"

#include <cstddef>

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
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
int g_plan_fd = -1;
int g_closed = -1;                    // stands in for what close() closes and says it could not
std::map<const Kind *, long> g_calls; // of the last run that was attended
std::map<std::string, long> g_total;  // faults, by kind
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
    follow_faults(g_plan);
    const int before = count_descriptors();
    g_plan->listener = install_filter();
    while (!g_plan->attended)
        sched_yield();
    g_plan->armed = true;
    std::string text = row.scenario();
    g_plan->armed = false;
    for (int left = 10; (g_plan->descriptors = count_descriptors() - before - 1) > 0 && left > 0;
         --left)
        usleep(10'000); // a resolver's thread that nobody waits for closes its own
    g_plan->blocks = library_blocks();
    g_plan->length = std::min(text.size(), sizeof g_plan->result);
    memcpy(g_plan->result, text.data(), g_plan->length);
    g_plan->ended = true;
    if (recorded)
        exit(0); // which counts the lines that ran
    _exit(0);
}

// Answers for the kernel: lets a call through, or fails it when its turn has come. Programs that
// the scenario starts are left alone.
class Attendant {
public:
    Attendant(int listener, const Fault &fault) : listener_(listener), fault_(fault)
    {
        if (const char *const folder = getenv(kRecord))
            record_ = folder;
    }
    ~Attendant() { close(listener_); }

    void answer()
    {
        seccomp_notif asked = {};
        if (ioctl(listener_, SECCOMP_IOCTL_NOTIF_RECV, &asked) != 0)
            return; // whoever asked is gone
        seccomp_notif_resp reply = {};
        reply.id = asked.id;
        if (fails(asked)) {
            g_plan->hit = true;
            reply.error = -fault_.error;
            if (asked.data.nr == SYS_close) // is done, whatever it says
                replace(asked);
        } else {
            reply.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
            if (g_plan->armed && asked.data.nr == SYS_execve)
                strangers_.insert(static_cast<pid_t>(asked.pid));
        }
        ioctl(listener_, SECCOMP_IOCTL_NOTIF_SEND, &reply);
    }

private:
    bool fails(const seccomp_notif &asked)
    {
        const auto pid = static_cast<pid_t>(asked.pid);
        if (!g_plan->armed || pid == g_plan->spared || strangers_.contains(pid))
            return false;
        if (is_record(asked))
            return false;
        const auto fd = static_cast<int>(asked.data.args[0]);
        if (asked.data.nr == SYS_write && (fd == fileno(stderr) || fd == STDERR_FILENO))
            return false; // or nothing would tell what happened
        for (const Kind &kind : kKinds)
            if (std::find(kind.calls.begin(), kind.calls.end(), asked.data.nr) !=
                kind.calls.end()) {
                const long n = ++g_calls[&kind];
                return &kind == fault_.kind && n >= fault_.first && n <= fault_.last;
            }
        return false;
    }

    // Opening, writing and closing a record of what ran is none of the scenario's calls.
    bool is_record(const seccomp_notif &asked)
    {
        if (record_.empty())
            return false;
        if (std::find(kKinds.front().calls.begin(), kKinds.front().calls.end(), asked.data.nr) ==
            kKinds.front().calls.end())
            return recording_[asked.pid] > 0 && recording_[asked.pid]-- > 0;
        std::string path(record_.size(), '\0');
        const auto at = asked.data.args[asked.data.nr == SYS_openat ? 1 : 0];
        iovec own = {path.data(), path.size()}, theirs = {nullptr, path.size()};
        memcpy(&theirs.iov_base, &at, sizeof theirs.iov_base); // in the other process
        process_vm_readv(static_cast<pid_t>(asked.pid), &own, 1, &theirs, 1, 0);
        recording_[asked.pid] = path == record_ ? 2 : 0;
        return path == record_;
    }

    // What the descriptor was is closed; its number lives on.
    void replace(const seccomp_notif &asked) const
    {
        seccomp_notif_addfd other = {};
        other.id = asked.id;
        other.flags = SECCOMP_ADDFD_FLAG_SETFD;
        other.srcfd = static_cast<unsigned>(g_closed);
        other.newfd = static_cast<unsigned>(asked.data.args[0]);
        ioctl(listener_, SECCOMP_IOCTL_NOTIF_ADDFD, &other);
    }

    int listener_;
    const Fault &fault_;
    std::set<pid_t> strangers_;
    std::string record_;                // the folder
    std::map<unsigned, int> recording_; // calls to come, by process
};

// The filter's descriptor in the child as one of this process; -1 when the child has ended.
int fetch_listener(int pidfd)
{
    pollfd end = {pidfd, POLLIN, 0};
    while (g_plan->listener == 0)
        if (poll(&end, 1, 0) != 0)
            return -1;
    return static_cast<int>(
        check(syscall(SYS_pidfd_getfd, pidfd, g_plan->listener.load(), 0), "pidfd_getfd"));
}

// Answers until the child ends, and for those that it left behind a little longer. Returns its
// status as wait() has it; -1 when it did not end.
int attend(pid_t child, const Fault &fault)
{
    const auto pidfd = static_cast<int>(check(syscall(SYS_pidfd_open, child, 0), "pidfd_open"));
    const int listener = fetch_listener(pidfd);
    Attendant attendant(listener, fault);
    g_plan->attended = true;
    pollfd waited[] = {{pidfd, POLLIN, 0}, {listener, POLLIN, 0}};
    int status = -1;
    while (poll(waited, 2, waited[0].fd < 0 ? 100 : kPatience) > 0) {
        if ((waited[1].revents & POLLIN) != 0)
            attendant.answer();
        else if (waited[1].revents != 0)
            waited[1].fd = -1; // nobody is left to ask
        if ((waited[0].revents & POLLIN) != 0) {
            check(waitpid(child, &status, 0), "waitpid");
            waited[0].fd = -1;
        }
        if (waited[0].fd < 0 && waited[1].fd < 0)
            break;
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
    bool hit;
};

Run run(const Torture::Row &row, const Fault &fault, bool recorded)
{
    new (g_plan) FaultPlan();
    g_plan->allocations = !fault.kind;
    g_calls.clear();
    g_plan->first = fault.first;
    g_plan->last = fault.last;
    fflush(nullptr);
    const auto child = static_cast<pid_t>(check(fork(), "fork"));
    if (child == 0)
        suffer(row, recorded);
    Run run = {};
    const int status = attend(child, fault);
    run.hit = g_plan->hit;
    run.lines = joined(Device::logged());
    run.result.assign(g_plan->result, g_plan->length);
    if (status == -1)
        run.damage = " HANGS";
    else if (!g_plan->ended)
        run.damage = " ENDS with status " + std::to_string(status);
    return run;
}

void note_left(Run &run, long blocks, int descriptors)
{
    if (g_plan->blocks > blocks)
        run.damage += " LEAVES blocks";
    if (g_plan->descriptors > descriptors)
        run.damage += " LEAVES descriptors";
}

// All runs of a row: the other outcomes, each with the first fault that it came of.
class Rack {
public:
    explicit Rack(const Torture::Row &row) : row_(row)
    {
        const Run undisturbed = run(row, {}, getenv(kRecord));
        EXPECT_EQ(undisturbed.lines + undisturbed.damage, "") << row.name << " undisturbed";
        result_ = undisturbed.result;
        blocks_ = g_plan->blocks;
        descriptors_ = g_plan->descriptors;
        const long allocations = g_plan->count;
        const auto calls = g_calls;
        for (const bool behind : {false, true})
            fail_each({nullptr, ENOMEM}, allocations, behind);
        for (const auto &[kind, count] : calls)
            for (const int error : kind->errors)
                fail_each({kind, error}, count, false);
    }

    void judge() const;

private:
    void fail_each(Fault fault, long count, bool behind)
    {
        const long most = std::min(count, row_.most);
        for (long i = 0; i < most; ++i) {
            fault.first = 1 + i * count / most;
            fault.last = behind ? __LONG_MAX__ : fault.first;
            Run disturbed = run(row_, fault, false);
            g_total[fault.kind ? fault.kind->name : "allocation"] += disturbed.hit ? 1 : 0;
            note_left(disturbed, blocks_, descriptors_);
            if (seen_.insert(disturbed.result + disturbed.lines).second && getenv(kRecord))
                run(row_, fault, true);
            said_ += disturbed.lines + "\n";
            if (disturbed.result == result_ && disturbed.damage.empty())
                continue;
            const std::string lines = disturbed.lines.empty() ? "" : ": " + disturbed.lines;
            outcomes_.emplace(disturbed.result + lines + disturbed.damage, shown(fault));
        }
    }

    const Torture::Row &row_;
    std::map<std::string, std::string> outcomes_; // without the undisturbed one
    std::string result_;
    std::set<std::string> seen_; // outcomes
    std::string said_;           // all lines that came
    long blocks_ = 0;
    int descriptors_ = 0;
};

// Damage is not among what "*" stands for.
bool matches(std::string_view pattern, std::string_view text)
{
    for (const char *const damage : {" HANGS", " ENDS", " LEAVES"})
        if (pattern.find(damage) == pattern.npos && text.find(damage) != text.npos)
            return false;
    for (bool is_first = true;; is_first = false) {
        const auto star = pattern.find('*');
        const auto piece = pattern.substr(0, star);
        if (star == pattern.npos)
            return is_first ? text == piece : text.ends_with(piece);
        const auto at = text.find(piece);
        if (at == text.npos || (is_first && at != 0))
            return false;
        text.remove_prefix(at + piece.size());
        pattern.remove_prefix(star + 1);
    }
}

void Rack::judge() const
{
    std::set<const char *> missing(row_.known.begin(), row_.known.end());
    auto patterns = row_.outcomes;
    patterns.insert(patterns.end(), row_.known.begin(), row_.known.end());
    for (const auto &[outcome, fault] : outcomes_) {
        bool fits = false;
        for (const char *const pattern : patterns)
            if (matches(pattern, outcome)) {
                fits = true;
                missing.erase(pattern);
            }
        EXPECT_TRUE(fits) << row_.name << ", " << fault << ", has another outcome:\n" << outcome;
    }
#ifndef __SANITIZE_ADDRESS__ // whose own calls and allocations come in between
    for (const char *const pattern : missing)
        ADD_FAILURE() << row_.name << ": known, and comes no more: " << pattern;
    for (const char *const message : row_.messages)
        EXPECT_NE(said_.find(message), said_.npos) << row_.name << ": not logged: " << message;
#endif
}

} // namespace

// LeakSanitizer asks: children of the runner count for themselves.
extern "C" int __lsan_is_turned_off() // NOLINT(bugprone-reserved-identifier,cert-dcl*): its name
{
    return g_is_child ? 1 : 0;
}

Torture::~Torture()
{
    for (const auto &[kind, count] : g_total)
        printf("faults: %ld %s\n", count, kind.c_str());
}

void Torture::torture(const std::vector<Row> &rows)
{
    if (!g_plan) {
        g_plan_fd = static_cast<int>(check(memfd_create("plan", MFD_CLOEXEC), "memfd_create"));
        g_closed = static_cast<int>(check(memfd_create("closed", MFD_CLOEXEC), "memfd_create"));
        check(ftruncate(g_plan_fd, sizeof *g_plan), "ftruncate");
        void *const memory =
            mmap(nullptr, sizeof *g_plan, PROT_READ | PROT_WRITE, MAP_SHARED, g_plan_fd, 0);
        check(memory == MAP_FAILED ? -1 : 0, "mmap");
        g_plan = static_cast<FaultPlan *>(memory);
    }
    for (const Row &row : rows)
        Rack(row).judge();
}

void Torture::settle()
{
    g_plan->armed = false;
}

std::string Torture::settled(const std::string &text)
{
    settle();
    return text;
}

std::function<std::string()> Torture::command(const std::string &line)
{
    return [line] {
        settle(); // until zorvctl runs
        g_plan->spared = getpid();
        const auto plan = static_cast<int>(check(fcntl(g_plan_fd, F_DUPFD, 0), "F_DUPFD"));
        const Outcome outcome = run(kFaultsVariable + ("=" + std::to_string(plan)) +
                                    " LD_PRELOAD=" ZORV_FAULTS_LIBRARY
                                    " ASAN_OPTIONS=detect_leaks=0:verify_asan_link_order=0"
                                    " exec " +
                                    line);
        settle();
        close(plan);
        std::istringstream lines(outcome.errors);
        for (std::string text; std::getline(lines, text);) {
            const bool is_log = text.starts_with("zorvctl[") && text.find("]: ") != text.npos;
            fprintf(stderr, "%s\n", text.substr(is_log ? text.find("]: ") + 3 : 0).c_str());
        }
        const std::string output = outcome.output.empty() ? "" : " " + outcome.output;
        return "[" + std::to_string(outcome.status) + "]" + output;
    };
}

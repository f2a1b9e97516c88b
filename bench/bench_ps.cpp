// Lists of processes, with that many more of 20 descriptors each; top hosts of tracked connections;
// memory. Peers that are programs are started and waited for, and real time counts; against the
// others, the process's own. The table of connections is a written one, in a mount name space of
// our own; the peers read the same text from another path.
#include "ratio.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include <fcntl.h>
#include <jansson.h>
#include <libproc2/meminfo.h>
#include <libproc2/pids.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zorv/log.h>
#include <zorv/ps.h>
#include <zorv/stats.h>

namespace {

constexpr int kDescriptors = 20;
constexpr char kTable[] = "/proc/net/nf_conntrack";
constexpr char kCopy[] = "/tmp/nf_conntrack"; // in a tmpfs of our own

// Processes that wait until this object, or the benchmark, is gone.
class Processes {
public:
    explicit Processes(long count)
    {
        for (; count > 0; --count) {
            const pid_t child = fork();
            if (child == 0)
                wait_with_descriptors();
            children_.push_back(child);
        }
    }
    Processes(const Processes &) = delete;
    Processes &operator=(const Processes &) = delete;
    ~Processes()
    {
        for (const pid_t child : children_)
            kill(child, SIGKILL);
        for (const pid_t child : children_)
            waitpid(child, nullptr, 0);
    }

private:
    [[noreturn]] static void wait_with_descriptors()
    {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        close_range(0, ~0U, 0);
        for (int pair[2], n = 0; n < kDescriptors; n += 4) { // files, pipes and sockets
            open("/dev/null", O_RDWR | O_CLOEXEC);
            socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
            if (n % 8 == 0 ? pipe2(pair, O_CLOEXEC)
                           : socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair))
                _exit(1);
        }
        for (;;)
            pause();
    }

    std::vector<pid_t> children_;
};

void list(benchmark::State &state, long size)
{
    const Processes processes(size);
    for ([[maybe_unused]] const auto _ : state) {
        zorv_ps_list *const all = zorv_ps();
        if (all->count < size)
            return state.SkipWithError("processes are missing");
        zorv_ps_list_free(all);
    }
}

// The same facts: names, state, parent, sizes and command line. It does not count descriptors.
void list_with_libproc2(benchmark::State &state, long size)
{
    const Processes processes(size);
    pids_item items[] = {PIDS_ID_PID,  PIDS_CMD,    PIDS_STATE,  PIDS_ID_PPID,
                         PIDS_VM_SIZE, PIDS_VM_RSS, PIDS_CMDLINE};
    for ([[maybe_unused]] const auto _ : state) {
        pids_info *info = nullptr;
        if (procps_pids_new(&info, items, std::size(items)) < 0)
            return state.SkipWithError("procps_pids_new");
        const pids_fetch *const all = procps_pids_reap(info, PIDS_FETCH_TASKS_ONLY);
        if (!all || all->counts->total < size)
            return state.SkipWithError("processes are missing");
        procps_pids_unref(&info);
    }
}

template <const char *const &Command>
void run_program(benchmark::State &state, long size)
{
    const Processes processes(size);
    for ([[maybe_unused]] const auto _ : state) {
        if (system(Command) != 0) // NOLINT(cert-env33-c): a shell is how scripts start them
            return state.SkipWithError(Command);
    }
}

void list_descriptors(benchmark::State &state, long size)
{
    const Processes processes(size);
    for ([[maybe_unused]] const auto _ : state) {
        json_t *const array = zorv_ps_list_to_array(zorv_ps_filter(1, nullptr, nullptr));
        char *const text = json_dumps(array, JSON_COMPACT);
        benchmark::DoNotOptimize(text);
        free(text);
        json_decref(array);
    }
}

// A mount name space of our own with a fresh /tmp, once.
bool enter_name_space()
{
    const std::string map = "0 " + std::to_string(geteuid()) + " 1";
    if (unshare(geteuid() == 0 ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER) != 0)
        return false;
    std::ofstream("/proc/self/uid_map") << map; // root's own refuses, and needs none
    return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("tmpfs", "/tmp", "tmpfs", 0, nullptr) == 0;
}

// While it lives, this process, and no other, sees an empty /proc/net to write to.
class OwnProcNet {
public:
    OwnProcNet() : mounted_(mount("tmpfs", "/proc/net", "tmpfs", 0, nullptr) == 0) {}
    OwnProcNet(const OwnProcNet &) = delete;
    OwnProcNet &operator=(const OwnProcNet &) = delete;
    ~OwnProcNet()
    {
        if (mounted_)
            umount2("/proc/net", MNT_DETACH);
    }

private:
    bool mounted_;
};

// A table of that many connections from 250 clients to 5,000 servers.
void write_table(const char *path, long lines)
{
    std::ofstream table(path, std::ios::trunc);
    for (unsigned n = 0; n < static_cast<unsigned long>(lines); ++n) {
        const unsigned mixed = n * 2654435761U, client = mixed % 250, server = mixed / 250 % 5000;
        const std::string ends[] = {
            "10.0." + std::to_string(client / 250) + "." + std::to_string(client % 250),
            "198.51." + std::to_string(server / 250) + "." + std::to_string(server % 250)};
        table << "ipv4     2 tcp      6 431999 ESTABLISHED src=" << ends[0] << " dst=" << ends[1]
              << " sport=" << 1024 + n % 60000 << " dport=443 src=" << ends[1]
              << " dst=203.0.113.7 sport=443 dport=" << 1024 + n % 60000
              << " [ASSURED] mark=0 zone=0 use=2\n";
    }
}

void count_hosts(benchmark::State &state, long size)
{
    const OwnProcNet own;
    write_table(kTable, size);
    for ([[maybe_unused]] const auto _ : state) {
        conntrack_hosts_t *const hosts = get_top_conntrack_hosts();
        if (!hosts || !hosts->hosts)
            return state.SkipWithError("no table");
        free_conntrack_hosts(hosts);
    }
}

void count_with_unordered_map(benchmark::State &state, long size)
{
    write_table(kCopy, size);
    for ([[maybe_unused]] const auto _ : state) {
        std::unordered_map<std::string, int> counts;
        std::ifstream table(kCopy);
        for (std::string line; std::getline(table, line);) {
            for (const char *name : {"src=", "dst="}) {
                const size_t begin = line.find(name) + 4;
                ++counts[line.substr(begin, line.find(' ', begin) - begin)];
            }
        }
        std::vector<std::pair<std::string, int>> sorted(counts.begin(), counts.end());
        std::stable_sort(sorted.begin(), sorted.end(),
                         [](const auto &a, const auto &b) { return a.second > b.second; });
        benchmark::DoNotOptimize(sorted.data());
    }
}

void count_with_awk(benchmark::State &state, long size)
{
    write_table(kCopy, size);
    for ([[maybe_unused]] const auto _ : state) {
        // NOLINTNEXTLINE(cert-env33-c)
        if (system("awk '{s = d = 0; for (i = 1; i <= NF && !(s && d); i++) {"
                   "if (!s && $i ~ /^src=/) {s = 1; n[substr($i, 5)]++}"
                   "if (!d && $i ~ /^dst=/) {d = 1; n[substr($i, 5)]++}}}"
                   "END {for (h in n) print n[h], h}' /tmp/nf_conntrack | sort -rn >/dev/null") !=
            0)
            return state.SkipWithError("awk");
    }
}

void read_memory(benchmark::State &state, long)
{
    for ([[maybe_unused]] const auto _ : state) {
        meminfo_t memory;
        meminfo(&memory);
        benchmark::DoNotOptimize(memory);
    }
}

// It opens the file each time, as meminfo() does; it could keep it open for the next.
void read_memory_with_libproc2(benchmark::State &state, long)
{
    for ([[maybe_unused]] const auto _ : state) {
        meminfo_info *info = nullptr;
        if (procps_meminfo_new(&info) < 0)
            return state.SkipWithError("procps_meminfo_new");
        benchmark::DoNotOptimize(procps_meminfo_get(info, MEMINFO_MEM_AVAILABLE));
        procps_meminfo_unref(&info);
    }
}

const char *const kPs = "ps -eo pid,ppid,s,vsz,rss,args >/dev/null";
const char *const kLsof = "lsof -nP >/dev/null 2>&1";
const char *const kSs = "ss -anp >/dev/null";

} // namespace

void register_benches()
{
    using bench::Clock;
    libzorv_log_level = 0;
    if (!enter_name_space())
        perror("unshare"); // the benchmarks of connections fail then
    bench::add("ps", {30, 300}, "zorv", list);
    bench::add("ps", {30, 300}, "libproc2", list_with_libproc2);
    bench::add("ps as a whole", {30, 300}, "zorv", list, Clock::real);
    bench::add("ps as a whole", {30, 300}, "ps", run_program<kPs>, Clock::real);
    bench::add("ps with fds", {30, 300}, "zorv", list_descriptors, Clock::real);
    bench::add("ps with fds", {30, 300}, "lsof", run_program<kLsof>, Clock::real);
    bench::add("ps with fds", {30, 300}, "ss", run_program<kSs>, Clock::real);
    bench::add("meminfo", {1}, "zorv", read_memory);
    bench::add("meminfo", {1}, "libproc2", read_memory_with_libproc2);
    bench::add("conntrack", {30000, 300000}, "zorv", count_hosts);
    bench::add("conntrack", {30000, 300000}, "unordered_map", count_with_unordered_map);
    bench::add("conntrack whole", {30000, 300000}, "zorv", count_hosts, Clock::real);
    bench::add("conntrack whole", {30000, 300000}, "awk", count_with_awk, Clock::real);
}

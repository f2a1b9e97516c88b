// start_cost [--quick] "PROGRAM WORD..."...: what a program has cost when it ends, a line each: its
// private dirty memory in KiB, the part of that in libzorv.so, the instructions it ran (with
// --quick 0), and the best time of many starts in us.
#include <fcntl.h>
#include <spawn.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr int kStarts = 300;

// A program and its words, with no blanks in them.
class Command {
public:
    explicit Command(const char *line)
    {
        std::istringstream words(line);
        for (std::string word; words >> word;)
            words_.push_back(word);
        for (std::string &word : words_)
            argv_.push_back(word.data());
        argv_.push_back(nullptr);
    }
    Command(const Command &) = delete;
    Command &operator=(const Command &) = delete;

    const char *program() const { return argv_[0]; }
    char *const *argv() const { return argv_.data(); }

private:
    std::vector<std::string> words_;
    std::vector<char *> argv_;
};

struct Memory {
    long dirty = 0;
    long own = 0;
};

[[noreturn]] void fail(const char *what)
{
    perror(what);
    exit(2);
}

// proc_pid_smaps(5): "Anonymous" is what the process has written, where "Private_Dirty" counts a
// file's pages, too, that wait for the disk, as a library's do that was just built. What follows a
// library's last segment without a name is its .bss.
Memory memory_of(pid_t pid)
{
    Memory memory;
    FILE *const file = fopen(("/proc/" + std::to_string(pid) + "/smaps").c_str(), "re");
    if (!file)
        fail("smaps");
    char line[4096];
    bool is_own = false;
    uint64_t last_end = 0;
    while (fgets(line, sizeof line, file)) {
        uint64_t start = 0;
        uint64_t end = 0;
        long kib = 0;
        if (sscanf(line, "%" SCNx64 "-%" SCNx64 " ", &start, &end) == 2) {
            const bool is_nameless = !strchr(line, '/') && !strchr(line, '[');
            is_own = strstr(line, "/libzorv.so") || (is_own && is_nameless && start == last_end);
            last_end = end;
        } else if (sscanf(line, "Anonymous: %ld kB", &kib) == 1) {
            memory.dirty += kib;
            memory.own += is_own ? kib : 0;
        }
    }
    fclose(file);
    return memory;
}

// Starts a program that stops before its first instruction.
pid_t start_traced(const Command &command)
{
    const pid_t pid = fork();
    if (pid == 0) {
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        execv(command.program(), command.argv());
        _exit(127);
    }
    int status = 0;
    if (pid < 0 || waitpid(pid, &status, 0) != pid || !WIFSTOPPED(status))
        fail(command.program());
    return pid;
}

// Step by step: counters of the processor are not to be had on every machine.
uint64_t instructions_of(const Command &command)
{
    const pid_t pid = start_traced(command);
    uint64_t count = 0;
    int status = 0;
    do {
        if (ptrace(PTRACE_SINGLESTEP, pid, nullptr, nullptr) != 0 ||
            waitpid(pid, &status, 0) != pid || WIFSIGNALED(status))
            fail(command.program());
        ++count;
    } while (!WIFEXITED(status));
    return count;
}

Memory dirtied_by(const Command &command)
{
    const pid_t pid = start_traced(command);
    ptrace(PTRACE_SETOPTIONS, pid, nullptr, PTRACE_O_TRACEEXIT | PTRACE_O_EXITKILL);
    int status = 0;
    if (ptrace(PTRACE_CONT, pid, nullptr, nullptr) != 0 || waitpid(pid, &status, 0) != pid ||
        status >> 8 != (SIGTRAP | PTRACE_EVENT_EXIT << 8))
        fail(command.program());
    const Memory memory = memory_of(pid);
    ptrace(PTRACE_CONT, pid, nullptr, nullptr);
    waitpid(pid, &status, 0);
    return memory;
}

double start_us(const Command &command)
{
    using Clock = std::chrono::steady_clock;
    double best = 1e9;
    for (int i = 0; i < kStarts; ++i) {
        const Clock::time_point start = Clock::now();
        pid_t pid = 0;
        if (posix_spawn(&pid, command.program(), nullptr, nullptr, command.argv(), environ) != 0 ||
            waitpid(pid, nullptr, 0) != pid)
            fail(command.program());
        best =
            std::min(best, std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    return best;
}

} // namespace

int main(int argc, char **argv)
{
    FILE *const answer =
        fdopen(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0), "w"); // without what the programs print
    if (!answer || !freopen("/dev/null", "w", stdout))
        fail("standard output");
    const bool is_quick = argc > 1 && strcmp(argv[1], "--quick") == 0;
    for (int i = is_quick ? 2 : 1; i < argc; ++i) {
        const Command command(argv[i]);
        const Memory memory = dirtied_by(command);
        fprintf(answer, "%ld %ld %" PRIu64 " %.0f\n", memory.dirty, memory.own,
                is_quick ? 0 : instructions_of(command), start_us(command));
    }
    return fclose(answer);
}

// start_cost PROGRAM...: what a program has cost when it ends, a line each: its private dirty
// memory in KiB, the part of that in libzorv.so, the instructions it ran, and the best time of many
// starts in us.
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
#include <string>

namespace {

constexpr int kStarts = 300;

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
pid_t start_traced(const char *program)
{
    const pid_t pid = fork();
    if (pid == 0) {
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        execl(program, program, static_cast<char *>(nullptr));
        _exit(127);
    }
    int status = 0;
    if (pid < 0 || waitpid(pid, &status, 0) != pid || !WIFSTOPPED(status))
        fail(program);
    return pid;
}

// Step by step: counters of the processor are not to be had on every machine.
uint64_t instructions_of(const char *program)
{
    const pid_t pid = start_traced(program);
    uint64_t count = 0;
    int status = 0;
    do {
        if (ptrace(PTRACE_SINGLESTEP, pid, nullptr, nullptr) != 0 ||
            waitpid(pid, &status, 0) != pid || WIFSIGNALED(status))
            fail(program);
        ++count;
    } while (!WIFEXITED(status));
    return count;
}

Memory dirtied_by(const char *program)
{
    const pid_t pid = start_traced(program);
    ptrace(PTRACE_SETOPTIONS, pid, nullptr, PTRACE_O_TRACEEXIT | PTRACE_O_EXITKILL);
    int status = 0;
    if (ptrace(PTRACE_CONT, pid, nullptr, nullptr) != 0 || waitpid(pid, &status, 0) != pid ||
        status >> 8 != (SIGTRAP | PTRACE_EVENT_EXIT << 8))
        fail(program);
    const Memory memory = memory_of(pid);
    ptrace(PTRACE_CONT, pid, nullptr, nullptr);
    waitpid(pid, &status, 0);
    return memory;
}

double start_us(const char *program)
{
    using Clock = std::chrono::steady_clock;
    double best = 1e9;
    char *const argv[] = {const_cast<char *>(program), nullptr};
    for (int i = 0; i < kStarts; ++i) {
        const Clock::time_point start = Clock::now();
        pid_t pid = 0;
        if (posix_spawn(&pid, program, nullptr, nullptr, argv, environ) != 0 ||
            waitpid(pid, nullptr, 0) != pid)
            fail(program);
        best =
            std::min(best, std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    return best;
}

} // namespace

int main(int argc, char **argv)
{
    for (int i = 1; i < argc; ++i) {
        const Memory memory = dirtied_by(argv[i]);
        printf("%ld %ld %" PRIu64 " %.0f\n", memory.dirty, memory.own, instructions_of(argv[i]),
               start_us(argv[i]));
    }
    return 0;
}

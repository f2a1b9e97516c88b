// One run of a program that does nothing, by the MiB of memory that the caller has in use; and
// capturing a shell command's output, by its bytes. The peers use posix_spawn(), which shares the
// caller's memory until the program starts, where fork() copies its page tables. Real time counts,
// since most of it passes in the children.
#include "ratio.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zorv/exec.h>

extern char **environ;

namespace {

using Text = std::unique_ptr<char, decltype(&free)>;

char g_program[] = "/bin/true";
char *const g_vector[] = {g_program, nullptr};

Text memory_in_use(long mebibytes)
{
    const auto size = static_cast<size_t>(mebibytes) << 20;
    Text block(static_cast<char *>(malloc(size)), free);
    memset(block.get(), 1, size);
    benchmark::DoNotOptimize(block.get());
    return block;
}

void run(benchmark::State &state, long size)
{
    const Text block = memory_in_use(size);
    for ([[maybe_unused]] const auto _ : state)
        forkexec(g_vector);
}

void spawn(benchmark::State &state, long size)
{
    const Text block = memory_in_use(size);
    for ([[maybe_unused]] const auto _ : state) {
        pid_t child;
        if (posix_spawn(&child, g_program, nullptr, nullptr, g_vector, environ) != 0)
            return state.SkipWithError("posix_spawn");
        waitpid(child, nullptr, 0);
    }
}

std::string print_bytes(long size)
{
    return "head -c " + std::to_string(size) + " /dev/zero | tr '\\0' x";
}

void capture(benchmark::State &state, long size)
{
    const std::string command = print_bytes(size);
    for ([[maybe_unused]] const auto _ : state) {
        const Text text(popen_alloc_output(command.c_str(), SIZE_MAX), free);
        if (!text || strlen(text.get()) != static_cast<size_t>(size))
            return state.SkipWithError("short output");
    }
}

// Starts a shell whose output goes to the descriptor.
pid_t spawn_shell(const char *command, int output)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    char shell[] = "sh", option[] = "-c";
    char *const vector[] = {shell, option, const_cast<char *>(command), nullptr};
    pid_t child = -1;
    const int rc = posix_spawn(&child, "/bin/sh", &actions, nullptr, vector, environ);
    posix_spawn_file_actions_destroy(&actions);
    return rc == 0 ? child : -1;
}

// Reads to the end, with as much room as there is at a time.
size_t read_all(int fd, Text &text, size_t room)
{
    size_t used = 0;
    for (ssize_t count = 1; count > 0;) {
        if (used == room)
            text.reset(static_cast<char *>(realloc(text.release(), room *= 2)));
        count = read(fd, text.get() + used, room - used);
        used += static_cast<size_t>(count);
    }
    return used;
}

void spawn_and_read(benchmark::State &state, long size)
{
    const std::string command = print_bytes(size);
    for ([[maybe_unused]] const auto _ : state) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0)
            return state.SkipWithError("pipe2");
        const pid_t child = spawn_shell(command.c_str(), ends[1]);
        close(ends[1]);
        Text text(static_cast<char *>(malloc(1024)), free);
        const size_t length = read_all(ends[0], text, 1024);
        close(ends[0]);
        waitpid(child, nullptr, 0);
        if (length != static_cast<size_t>(size))
            return state.SkipWithError("short output");
    }
}

} // namespace

void register_benches()
{
    bench::add("forkexec", {1, 16, 64, 256}, "zorv", run, bench::Clock::real);
    bench::add("forkexec", {1, 16, 64, 256}, "posix_spawn", spawn, bench::Clock::real);
    bench::add("popen_alloc_output", {64, 4096, 262144, 1 << 20}, "zorv", capture,
               bench::Clock::real);
    bench::add("popen_alloc_output", {64, 4096, 262144, 1 << 20}, "posix_spawn", spawn_and_read,
               bench::Clock::real);
}

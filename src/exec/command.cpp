#include <zorv/exec.h>

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "core/log_gate.h"
#include "core/own.h"
#include "core/text_tools.h"

using namespace zorv;

static_assert(offsetof(exec_command, argc) == 4096);
static_assert(sizeof(exec_command) == 4096 + 2 * sizeof(char *));

namespace {

constexpr char kModule[] = "libzorv_exec";
constexpr size_t kArgument = 4096; // characters kept of an argument, and compared of a path

using Command = std::unique_ptr<exec_command, Closer<exec_destroy>>;

// An object that has its path, and room for an argv of so many slots.
Command make_command(const char *path, size_t slots)
{
    Command command(static_cast<exec_command *>(calloc(1, sizeof(exec_command))));
    if (!command) {
        log_debug("%d: calloc(%zu, %zu) failed", __LINE__, size_t{1}, sizeof(exec_command));
        return nullptr;
    }
    command->argv = static_cast<char **>(calloc(slots, sizeof(char *)));
    if (!command->argv) {
        log_debug("%d: calloc(%zu, %zu) failed", __LINE__, slots, sizeof(char *));
        return nullptr;
    }
    copy_text(command->path, sizeof command->path, path);
    command->argv[0] = command->path;
    command->argc = 1;
    return command;
}

bool same_argument(const char *a, const char *b)
{
    return a && b ? strcmp(a, b) == 0 : a == b;
}

} // namespace

exec_command *exec_create(const char *path, ...)
{
    if (!path || *path == '\0')
        return nullptr;

    va_list arguments;
    va_start(arguments, path);
    size_t count = 0;
    while (va_arg(arguments, const char *))
        ++count;
    va_end(arguments);

    Command command = make_command(path, count + 2);
    if (!command)
        return nullptr;
    va_start(arguments, path);
    while (const char *argument = va_arg(arguments, const char *))
        command->argv[command->argc++] = strndup(argument, kArgument);
    va_end(arguments);
    return command.release();
}

void exec_destroy(exec_command *command)
{
    if (!command)
        return;
    for (int slot = 1; slot < command->argc; ++slot)
        free(command->argv[slot]);
    free(command->argv);
    free(command);
}

exec_command *exec_copy(const exec_command *source)
{
    if (!source || source->argc < 1) // without its path slot none of ours
        return nullptr;
    // On purpose: no slot for a terminator, so a copy cannot be run; kept for callers built against
    // it.
    Command copy = make_command(source->path, static_cast<size_t>(source->argc));
    if (!copy)
        return nullptr;
    while (copy->argc < source->argc) {
        const char *argument = source->argv[copy->argc];
        char *duplicate = argument ? strndup(argument, kArgument) : nullptr;
        if (argument && !duplicate)
            return nullptr;
        copy->argv[copy->argc++] = duplicate;
    }
    return copy.release();
}

int exec_cmp(const exec_command *a, const exec_command *b)
{
    if (!a || !b)
        return -1;
    if (a == b)
        return 0;
    if (a->argc != b->argc)
        return -ENOENT;
    if (strncmp(a->path, b->path, kArgument) != 0)
        return -ESRCH;
    for (int slot = 1; slot < a->argc; ++slot) {
        if (!same_argument(a->argv[slot], b->argv[slot]))
            return slot;
    }
    return 0;
}

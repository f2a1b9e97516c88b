#include "support/allocation.h"

#include <cerrno>
#include <cstddef>

namespace {

long g_count;   // allocations so far
long g_failing; // the one to fail, by that count; 0 for none

bool fails()
{
    if (++g_count != g_failing)
        return false;
    errno = ENOMEM;
    return true;
}

} // namespace

void fail_allocation(long n)
{
    g_failing = g_count + n;
}

void fail_allocations_off()
{
    g_failing = 0;
}

long allocations()
{
    return g_count;
}

// The names are the linker's, for --wrap. NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl*)
extern "C" {

void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void *__real_realloc(void *block, size_t size);
char *__real_strdup(const char *text);
char *__real_strndup(const char *text, size_t size);

void *__wrap_malloc(size_t size)
{
    return fails() ? nullptr : __real_malloc(size);
}

void *__wrap_calloc(size_t count, size_t size)
{
    return fails() ? nullptr : __real_calloc(count, size);
}

void *__wrap_realloc(void *block, size_t size)
{
    return fails() ? nullptr : __real_realloc(block, size);
}

char *__wrap_strdup(const char *text)
{
    return fails() ? nullptr : __real_strdup(text);
}

char *__wrap_strndup(const char *text, size_t size)
{
    return fails() ? nullptr : __real_strndup(text, size);
}
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl*)

// Allocation that fails by plan. Linked into the torture tests, where libstdc++ is spared, for that
// is the test's own; and a library that is loaded before a program's, which arms itself.
#include "support/faults.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <mutex>

#include <dlfcn.h>
#include <link.h>

#ifdef ZORV_SANITIZED
#define REAL(name) __interceptor_##name
#define LIBC "none" // the sanitizer asks it for memory, and must get it
#else
#define REAL(name) __libc_##name
#define LIBC "libc.so"
#endif

extern "C" {
void *REAL(malloc)(size_t size);
void *REAL(calloc)(size_t count, size_t size);
void *REAL(realloc)(void *block, size_t size);
void REAL(free)(void *block);
}

FaultPlan *g_followed;

namespace {

// Whose calls may fail. What OpenSSL or a test does inside is not the library's to answer for.
const char *const kModules[] = {"libzorv.", "libjansson", "libevent", LIBC, "libcurl",
#ifdef ZORV_FAULTS_PROGRAM
                                "zorvctl",  "libstdc++"
#endif
};
constexpr int kCounted = 3; // the first of these: whose blocks are counted

std::mutex g_busy;
const void *g_blocks[1 << 16]; // those that are counted
long g_used;

// The caller's number in kModules, -1 for others.
int module_of(void *caller)
{
    dl_find_object found;
    if (_dl_find_object(caller, &found) != 0)
        return -1;
    const char *const path = found.dlfo_link_map->l_name;
    const char *const name = basename(*path ? path : program_invocation_name);
    for (int i = 0; i < static_cast<int>(std::size(kModules)); ++i)
        if (strncmp(name, kModules[i], strlen(kModules[i])) == 0)
            return i;
    return -1;
}

bool fails(void *caller)
{
    if (!g_followed || !g_followed->armed || !g_followed->allocations || module_of(caller) < 0)
        return false;
    const long n = ++g_followed->count;
    if (n < g_followed->first || n > g_followed->last)
        return false;
    g_followed->hit = true;
    errno = ENOMEM;
    return true;
}

void *noted(void *block, void *caller)
{
    if (!block || !g_followed || !g_followed->armed)
        return block;
    const int module = module_of(caller);
    const std::lock_guard lock(g_busy);
    if (module >= 0 && module < kCounted && g_used < std::ssize(g_blocks))
        g_blocks[g_used++] = block;
    return block;
}

void forget(const void *block)
{
    if (!block || !g_followed)
        return;
    const std::lock_guard lock(g_busy);
    g_used = std::remove(g_blocks, g_blocks + g_used, block) - g_blocks;
}

} // namespace

long library_blocks()
{
    return g_used;
}

// The functions of the C library, which every caller finds here first.
#define CALLER __builtin_return_address(0)
extern "C" {

void *malloc(size_t size)
{
    return fails(CALLER) ? nullptr : noted(REAL(malloc)(size), CALLER);
}

void *calloc(size_t count, size_t size)
{
    return fails(CALLER) ? nullptr : noted(REAL(calloc)(count, size), CALLER);
}

void *realloc(void *block, size_t size)
{
    if (fails(CALLER))
        return nullptr;
    void *const moved = REAL(realloc)(block, size);
    if (moved)
        forget(block);
    return noted(moved, CALLER);
}

void free(void *block)
{
    forget(block);
    REAL(free)(block);
}
}

#ifdef ZORV_FAULTS_PROGRAM
namespace {

// The program that is meant has the plan, programs that it starts have none.
[[gnu::constructor]] void arm()
{
    const char *const fd = getenv(kFaultsVariable);
    if (!fd || strcmp(program_invocation_short_name, "zorvctl") != 0)
        return;
    g_followed = share_plan(atoi(fd));
    g_followed->armed = true;
    unsetenv(kFaultsVariable);
    unsetenv("LD_PRELOAD");
}

} // namespace
#endif

// Allocation that fails by plan. Linked into the torture tests, where operator new is spared, for
// that is the test's own; and a library that is loaded before a program's, which arms itself.
#include "support/faults.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <mutex>
#include <set>

#include <dlfcn.h>
#include <link.h>
#include <sys/mman.h>

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

namespace {

// Whose calls may fail. What OpenSSL or a test does inside is not the library's to answer for.
#ifdef ZORV_FAULTS_PROGRAM
constexpr bool kOurs = false; // nobody asks for the blocks of a program that has ended
const char *const kModules[] = {"zorvctl", "libzorv.", "libjansson", "libevent",
                                LIBC,      "libcurl",  "libstdc++"};
#else
constexpr bool kOurs = true; // up to libevent, whose blocks are counted
const char *const kModules[] = {"libzorv.", "libjansson", "libevent", LIBC, "libcurl"};
#endif
constexpr int kCounted = 3;

FaultPlan *g_plan;
std::mutex g_busy;
std::set<const void *> g_blocks;

// The caller's number in kModules, -1 for others.
int module_of(void *caller)
{
    dl_find_object found;
    if (_dl_find_object(caller, &found) != 0)
        return -1;
    const char *const path =
        *found.dlfo_link_map->l_name ? found.dlfo_link_map->l_name : program_invocation_name;
    const char *const slash = strrchr(path, '/');
    for (int i = 0; i < static_cast<int>(std::size(kModules)); ++i)
        if (strncmp(slash ? slash + 1 : path, kModules[i], strlen(kModules[i])) == 0)
            return i;
    return -1;
}

bool fails(void *caller)
{
    if (!g_plan || !g_plan->armed || !g_plan->allocations || module_of(caller) < 0)
        return false;
    const long n = ++g_plan->count;
    if (n < g_plan->first || n > g_plan->last)
        return false;
    g_plan->hit = true;
    errno = ENOMEM;
    return true;
}

void *noted(void *block, void *caller)
{
    if (!kOurs || !g_plan || !g_plan->armed || !block)
        return block;
    const int module = module_of(caller);
    const std::lock_guard lock(g_busy);
    if (module >= 0 && module < kCounted)
        g_blocks.insert(block);
    return block;
}

void forget(const void *block)
{
    if (!kOurs || !g_plan || !block)
        return;
    const std::lock_guard lock(g_busy);
    g_blocks.erase(block);
}

} // namespace

void follow_faults(FaultPlan *plan)
{
    g_plan = plan;
}

long library_blocks()
{
    return static_cast<long>(g_blocks.size());
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
    if (moved && moved != block)
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
    void *const memory =
        mmap(nullptr, sizeof(FaultPlan), PROT_READ | PROT_WRITE, MAP_SHARED, atoi(fd), 0);
    unsetenv(kFaultsVariable);
    unsetenv("LD_PRELOAD");
    if (memory == MAP_FAILED)
        abort();
    follow_faults(static_cast<FaultPlan *>(memory));
    g_plan->armed = true;
}

} // namespace
#else
void *operator new(size_t size)
{
    void *const block = REAL(malloc)(size);
    if (!block)
        abort();
    return block;
}

void operator delete(void *block) noexcept
{
    REAL(free)(block);
}

void operator delete(void *block, size_t) noexcept
{
    REAL(free)(block);
}
#endif

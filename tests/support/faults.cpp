// Allocation that fails by plan. Linked into the torture tests, where operator new is spared, for
// that is the test's own; and a library that is loaded before a program's, which arms itself.
#include "support/faults.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include <link.h>
#include <sys/mman.h>

#ifdef __SANITIZE_ADDRESS__
#define REAL(name) __interceptor_##name
#else
#define REAL(name) __libc_##name
#endif

extern "C" {
void *REAL(malloc)(size_t size);
void *REAL(calloc)(size_t count, size_t size);
void *REAL(realloc)(void *block, size_t size);
void REAL(free)(void *block);
}

namespace {

// Whose calls may fail. What OpenSSL or a test does inside is not the library's to answer for.
constexpr struct {
    char name[16];
    bool ours; // whether its blocks are counted, too
} kModules[] = {
    {"libzorv.", true},   {"libjansson", true}, {"libevent", true},
    {"libc.so", false},   {"libcurl", false},
#ifdef ZORV_FAULTS_PROGRAM
    {"libstdc++", false}, {"", true}, // the program itself
#endif
};

struct Range {
    uintptr_t begin, end;
    bool ours;
};

FaultPlan *g_plan;
Range g_ranges[64]; // of code
size_t g_range_count;

// Pointers in open addressing; an entry of 1 was removed.
constexpr size_t kSlots = 1 << 18;
std::atomic_flag g_busy;
uintptr_t g_blocks[kSlots];
long g_block_count;

const Range *module_of(const void *caller)
{
    const auto at = reinterpret_cast<uintptr_t>(caller);
    for (size_t i = 0; i < g_range_count; ++i)
        if (at >= g_ranges[i].begin && at < g_ranges[i].end)
            return &g_ranges[i];
    return nullptr;
}

int note_module(dl_phdr_info *info, size_t, void *)
{
    const char *const slash = strrchr(info->dlpi_name, '/');
    const char *const name = slash ? slash + 1 : info->dlpi_name;
    for (const auto &module : kModules) {
        if (*module.name ? strncmp(name, module.name, strlen(module.name)) != 0 : *name != 0)
            continue;
        for (int i = 0; i < info->dlpi_phnum && g_range_count < std::size(g_ranges); ++i)
            if (const auto &part = info->dlpi_phdr[i];
                part.p_type == PT_LOAD && (part.p_flags & PF_X) != 0) {
                const uintptr_t begin = info->dlpi_addr + part.p_vaddr;
                g_ranges[g_range_count++] = {begin, begin + part.p_memsz, module.ours};
            }
    }
    return 0;
}

// The slot of a pointer, or the first free one of its run.
uintptr_t &slot_of(uintptr_t block)
{
    size_t i = (block >> 4) * 0x9e3779b97f4a7c15u >> 46;
    while (g_blocks[i] != 0 && g_blocks[i] != block)
        i = (i + 1) % kSlots;
    return g_blocks[i];
}

void note(void *block, bool there)
{
    if (!g_plan || !block)
        return;
    const int saved = errno;
    while (g_busy.test_and_set())
        ;
    uintptr_t &slot = slot_of(reinterpret_cast<uintptr_t>(block));
    if (there != (slot != 0)) {
        slot = there ? reinterpret_cast<uintptr_t>(block) : 1;
        g_block_count += there ? 1 : -1;
    }
    g_busy.clear();
    errno = saved;
}

bool fails(const void *caller)
{
    if (!g_plan || !g_plan->armed || !g_plan->allocations || !module_of(caller))
        return false;
    const long n = ++g_plan->count;
    if (n < g_plan->first || n > g_plan->last)
        return false;
    g_plan->hit = true;
    errno = ENOMEM;
    return true;
}

void *noted(void *block, const void *caller)
{
    if (g_plan && g_plan->armed)
        if (const Range *const module = module_of(caller); module && module->ours)
            note(block, true);
    return block;
}

} // namespace

void follow_faults(FaultPlan *plan)
{
    dl_iterate_phdr(note_module, nullptr);
    g_plan = plan;
}

long library_blocks()
{
    return g_block_count;
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
        note(block, false);
    return noted(moved, CALLER);
}

void free(void *block)
{
    note(block, false);
    REAL(free)(block);
}

char *strndup(const char *text, size_t size)
{
    const size_t length = strnlen(text, size);
    if (fails(CALLER))
        return nullptr;
    auto *const copy = static_cast<char *>(noted(REAL(malloc)(length + 1), CALLER));
    if (copy) {
        memcpy(copy, text, length);
        copy[length] = '\0';
    }
    return copy;
}

char *strdup(const char *text)
{
    if (fails(CALLER))
        return nullptr;
    const size_t size = strlen(text) + 1;
    void *const copy = noted(REAL(malloc)(size), CALLER);
    return static_cast<char *>(copy ? memcpy(copy, text, size) : nullptr);
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

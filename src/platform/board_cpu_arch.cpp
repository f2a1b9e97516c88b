#include "platform/board_cpu_arch.h"

#include <cstring>

#include <strings.h>

#include <zorv/board.h>
#include <zorv/text.h>

#include "core/lines.h"
#include "core/text_tools.h"

using namespace zorv;

namespace {

enum Arch : unsigned { ar2313, ar2316, ar7100, ar7240, ar933x, unknown = 43 };

constexpr size_t kValue = 64;   // characters of a value that are looked at
constexpr size_t kArchName = 6; // characters of every name
constexpr struct {
    char name[kArchName + 1];
    Arch arch;
} kArchNames[] = {
    {"ar933x", ar933x}, {"ar7240", ar7240}, {"ar2313", ar2313},
    {"ar2316", ar2316}, {"ar7100", ar7100},
};

constexpr struct {
    char system[16];
    Arch arch;
} kSystems[] = {
    {"Atheros AR5", ar2316},
    {"Atheros AR724", ar7240}, // before the shorter AR7
    {"Atheros AR933", ar933x},
    {"Atheros AR7", ar7100},
};

// Ends the text after so many bytes, and after no white space.
char *cut(char *text, size_t length)
{
    text[length] = '\0';
    trim_trailing(text, static_cast<int>(length));
    return text;
}

} // namespace

void zorv::read_cpu_line(char *line, CpuInfo &info)
{
    char *const colon = strchr(line, ':');
    if (!colon || colon[1] == '\0')
        return;
    const char *const key = cut(line, static_cast<size_t>(colon - line));
    const char *const value = cut(colon + 2, strnlen(colon + 2, kValue));
    if (strcmp(key, "system type") == 0)
        copy_text(info.system, sizeof info.system, value);
    else if (strcmp(key, "cpu model") == 0)
        copy_text(info.cpu, sizeof info.cpu, value);
}

unsigned zorv::cpu_arch(const CpuInfo &info)
{
    if (!begins_with(info.system, "Atheros"))
        return unknown;
    if (begins_with(info.cpu, "MIPS 4Kc"))
        return ar2313;
    for (const auto &row : kSystems)
        if (begins_with(info.system, row.system))
            return row.arch;
    return unknown;
}

unsigned zorv::detect_cpu_arch()
{
    const File file(fopen("/proc/cpuinfo", "re"));
    CpuInfo info;
    Lines<kCpuInfoLine> lines(file.get());
    while (char *const line = lines.next())
        read_cpu_line(line, info);
    return cpu_arch(info);
}

unsigned arch_name_to_type(const char *name, size_t length)
{
    if (!name || length != kArchName)
        return unknown;
    for (const auto &row : kArchNames)
        if (strncasecmp(name, row.name, kArchName) == 0)
            return row.arch;
    return unknown;
}

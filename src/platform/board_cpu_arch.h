// board_cpu_arch.h - the processor's architecture, in the codes of arch_name_to_type().
#ifndef ZORV_PLATFORM_BOARD_CPU_ARCH_H
#define ZORV_PLATFORM_BOARD_CPU_ARCH_H

#include <cstddef>

namespace zorv {

// What /proc/cpuinfo says, cut to the sizes that matter.
struct CpuInfo {
    char system[33] = "";
    char cpu[65] = "";
};

constexpr size_t kCpuInfoLine = 128;

void read_cpu_line(char *line, CpuInfo &info);
unsigned cpu_arch(const CpuInfo &info);

// Reads /proc/cpuinfo; 43, unknown, when it cannot.
unsigned detect_cpu_arch();

} // namespace zorv

#endif

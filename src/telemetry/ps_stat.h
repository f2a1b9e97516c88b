// ps_stat.h - what a process list takes from a line of /proc/PID/stat.
#ifndef ZORV_TELEMETRY_PS_STAT_H
#define ZORV_TELEMETRY_PS_STAT_H

#include <string_view>

namespace zorv {

struct ProcStat {
    std::string_view comm; // borrowed from the line
    char state;
    int ppid;
    unsigned long vsize; // bytes
    long rss;            // pages
};

// False for a line that is not in the kernel's form.
bool parse_stat(const char *line, ProcStat &stat);

} // namespace zorv

#endif

// stats_meminfo.h - the memory record from a table in the form of /proc/meminfo.
#ifndef ZORV_TELEMETRY_STATS_MEMINFO_H
#define ZORV_TELEMETRY_STATS_MEMINFO_H

#include <zorv/stats.h>

#include "telemetry/proc_table.h"

namespace zorv {

using MeminfoTable = ProcTable<32>;

// `function` stands in the log lines.
meminfo_t parse_meminfo(MeminfoTable &table, const char *function);

} // namespace zorv

#endif

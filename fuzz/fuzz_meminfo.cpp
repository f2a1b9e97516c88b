// Any text as /proc/meminfo.
#include <cmath>
#include <cstdint>
#include <cstdlib>

#include <jansson.h>
#include <zorv/log.h>

#include "core/own.h"
#include "telemetry/stats_meminfo.h"
#include "temporary_file.h"

using namespace zorv;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    libzorv_log_level = 0;
    const TemporaryFile file(data, size);
    MeminfoTable table(file.path());
    const meminfo_t memory = parse_meminfo(table, "meminfo");
    const bool sane = memory.MemAvailable <= memory.MemTotal;
    const bool in_range = memory.used_percent >= 0 && memory.used_percent <= 100;
    if (!std::isfinite(memory.used_percent) || (sane && !in_range))
        abort();
    const Json object(zorv_meminfo_to_obj(&memory));
    if (json_object_size(object.get()) != 25)
        abort();
    return 0;
}

// Any line as that of /proc/PID/stat: what is taken lies within the line.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "telemetry/ps_stat.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string line(reinterpret_cast<const char *>(data), size);
    zorv::ProcStat stat;
    if (!zorv::parse_stat(line.c_str(), stat))
        return 0;
    const char *const comm = stat.comm.data();
    if (comm[-1] != '(' || comm[stat.comm.size()] != ')' || comm < line.data() + 1 ||
        comm + stat.comm.size() >= line.data() + line.size())
        abort();
    return 0;
}

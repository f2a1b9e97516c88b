#include "telemetry/ps_stat.h"

#include <cstdio>
#include <cstring>

bool zorv::parse_stat(const char *line, ProcStat &stat)
{
    const char *const begin = strchr(line, '(');
    const char *const end = strrchr(line, ')'); // a name may hold any of these
    if (!begin || !end || begin > end || strlen(end + 1) < 2)
        return false;
    stat.comm = {begin + 1, static_cast<size_t>(end - begin - 1)};
    return sscanf(end + 2,
                  "%c %d %*d %*d %*d %*d %*u %*u %*u %*u %*u %*u %*u %*d %*d %*d %*d %*d %*d %*u "
                  "%lu %ld ",
                  &stat.state, &stat.ppid, &stat.vsize, &stat.rss) == 4;
}

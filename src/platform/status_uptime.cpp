#include <zorv/status.h>

#include <cstdio>
#include <cstdlib>

#include <sys/sysinfo.h>
#include <zorv/file.h>

namespace {

// A part of a duration, "" for none.
struct Part {
    char text[sizeof "4294967295d"];
};

Part part_of(unsigned long value, char unit)
{
    Part part = {""};
    if (const auto shown = static_cast<unsigned>(value))
        snprintf(part.text, sizeof part.text, "%u%c", shown, unit);
    return part;
}

} // namespace

long get_uptime_from_sysinfo()
{
    struct sysinfo info;
    return sysinfo(&info) == 0 ? info.uptime : -1;
}

long get_uptime_from_file(const char *path)
{
    char line[32] = "";
    freadline(path, line, sizeof line, "");
    char *end;
    const long seconds = strtol(line, &end, 10);
    return end != line ? seconds : -1;
}

long get_uptime_from_proc()
{
    return get_uptime_from_file("/proc/uptime");
}

void uptime2str(unsigned long seconds, char *buf, size_t size)
{
    if (!buf)
        return;
    const Part days = part_of(seconds / 86400, 'd'), hours = part_of(seconds / 3600 % 24, 'h');
    const Part minutes = part_of(seconds / 60 % 60, 'm'), rest = part_of(seconds % 60, 's');
    snprintf(buf, size, "%s%s%s%s", days.text, hours.text, minutes.text, rest.text);
}

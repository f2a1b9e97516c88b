#include <zorv/status.h>

#include <sys/stat.h>

#include "core/lines.h"
#include "core/text_tools.h"
#include "platform/config_files.h"

using namespace zorv;

namespace {

constexpr size_t kLine = 1024;

// A service is on when both of its keys are.
constexpr struct {
    char keys[2][20];
    int32_t dev_status::*flag;
} kServices[] = {
    {{"dhcpc.status", "dhcpc.1.status"}, &dev_status::dhcpc},
    {{"dhcpd.status", "dhcpd.1.status"}, &dev_status::dhcpd},
    {{"ppp.status", "ppp.1.status"}, &dev_status::ppp},
    {{"iptables.status", "iptables.50.status"}, &dev_status::iptables},
    {{"ebtables.status", "ebtables.50.status"}, &dev_status::ebtables},
};

bool is_invisible(char c)
{
    return c <= ' ' || c >= '\x7f';
}

File open_config()
{
    struct stat info;
    // On purpose: a file of these permissions counts as not yet written.
    if (stat(kSystemCfg, &info) != 0 || info.st_mode == (S_IFREG | 0777))
        return nullptr;
    return File(fopen(kSystemCfg, "re"));
}

// Which of a service's keys were seen enabled.
struct Seen {
    bool keys[2];
};

void note_enabled(std::string_view line, Seen (&seen)[std::size(kServices)])
{
    const size_t equals = line.find('=');
    // Elsewhere a carriage return is as good as a blank.
    if (line.front() == '#' || line.front() == '\r' || equals == line.npos)
        return;
    const std::string_view key = strip({line.data(), equals}, is_invisible);
    line.remove_prefix(equals + 1);
    if (strip(line, is_invisible) != "enabled")
        return;
    for (size_t service = 0; service < std::size(kServices); ++service)
        for (size_t i = 0; i < 2; ++i)
            if (key == kServices[service].keys[i])
                seen[service].keys[i] = true;
}

} // namespace

int fill_services(dev_status *s)
{
    if (!s)
        return 0;
    Seen seen[std::size(kServices)] = {};
    const File config = open_config();
    Lines<kLine> lines(config.get());
    while (const char *const line = lines.next())
        if (*line != '\0')
            note_enabled(line, seen);
    for (size_t service = 0; service < std::size(kServices); ++service)
        s->*kServices[service].flag = seen[service].keys[0] && seen[service].keys[1];
    return 0;
}

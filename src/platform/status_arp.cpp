#include "platform/status_arp_rows.h"

#include <zorv/status.h>

#include "core/lines.h"
#include "core/log_gate.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "libzorv_status";
constexpr size_t kMacText = sizeof "02:a0:f1:00:00:07";

} // namespace

namespace zorv {

bool read_arp_row(const char *row, Neighbour &neighbour)
{
    unsigned type;
    char mask[100], device[100];
    return sscanf(row, "%199s 0x%x 0x%x %99s %99s %99s", neighbour.ip, &type, &neighbour.flags,
                  neighbour.mac, mask, device) == 6;
}

} // namespace zorv

int get_mac_by_ip(const char *ip, char *mac, size_t size)
{
    if (size < kMacText)
        log_error("mac truncated");

    const File table(fopen("/proc/net/arp", "re"));
    Lines<kArpRow> rows(table.get());
    if (!mac || !rows.next()) // the first line names the columns
        return 0;
    Neighbour neighbour;
    const char *row;
    while ((row = rows.next()) && read_arp_row(row, neighbour)) {
        if (neighbour.flags == 0 || (ip && strcmp(neighbour.ip, ip) != 0))
            continue;
        copy_text(mac, size < kMacText ? size : kMacText, neighbour.mac);
        return 1;
    }
    return 0;
}

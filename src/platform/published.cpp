#include <zorv/status.h>

#include <unistd.h>
#include <zorv/file.h>

#include "core/lines.h"

using namespace zorv;

namespace {

constexpr char kInternet[] = "/var/run/system.internet";
constexpr char kDhcpState[] = "/var/run/dhcpc.last_state";

constexpr struct {
    char word[12];
    int state;
} kDhcpStates[] = {
    {"deconfig", 1}, // the words are the DHCP client's own
    {"leasefail", 2},
    {"bound", 3},
    {"renew", 4},
};

constexpr size_t kTcpRow = 1024;
constexpr char kSshListens[] = ":0016 00000000:0000 0A"; // port 22, no remote end, listening

} // namespace

int system_internet_status()
{
    if (access(kInternet, R_OK) != 0)
        return -1;
    char digit[2] = "";
    freadline(kInternet, digit, sizeof digit, "0");
    return digit[0] >= '0' && digit[0] <= '9' ? digit[0] - '0' : 0;
}

int system_dhcp_status()
{
    if (access(kDhcpState, R_OK) != 0)
        return 0;
    char word[32] = "";
    freadline(kDhcpState, word, sizeof word, "");
    for (const auto &row : kDhcpStates)
        if (strcmp(word, row.word) == 0)
            return row.state;
    return 0;
}

int system_is_ssh()
{
    const File table(fopen("/proc/net/tcp", "re"));
    Lines<kTcpRow> rows(table.get());
    while (const char *const row = rows.next())
        if (strstr(row, kSshListens))
            return 1;
    return 0;
}

#include <zorv/status.h>

#include <cstring>

#include <unistd.h>
#include <zorv/file.h>

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

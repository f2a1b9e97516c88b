#include <zorv/iface.h>

#include <algorithm>
#include <climits>
#include <cstring>

#include <arpa/inet.h>
#include <sys/ioctl.h>
#include <zorv/file.h>

#include "core/log_gate.h"
#include "core/text_tools.h"
#include "platform/iface_request.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "libzorv_util";
constexpr char kUplink[] = "/var/run/system.uplink";
constexpr char kUplinkIfname[] = "/var/run/system.uplink_ifname";
constexpr char kUplinkPort[] = "/var/run/system.uplink_port";
constexpr size_t kWord = 16; // 15 characters of the state are seen, and a NUL

// A word of kUplink and what a function says for it; 0 stands for any other word.
struct State {
    char word[8];
    int code;
};
constexpr State kWirelessStates[] = {
    {"init", 1},
    {"wds", 2},
    {"eth", 3},
    {"down", 4},
};
constexpr State kNoUplink[] = {
    {"init", 1},
    {"down", 2},
    {"unknown", 3},
};
constexpr char kWiredUplinks[][6] = {"eth0", "bond0", "eth1"}; // in the order they are tried

// Cleared first, for an empty file may leave a buffer as it was.
void read_name(const char *path, char *buffer, size_t size)
{
    buffer[0] = '\0';
    freadline(path, buffer, static_cast<int>(std::min<size_t>(size, INT_MAX)), "");
}

template <size_t Count>
int code_of(const char *word, const State (&states)[Count])
{
    for (const State &state : states)
        if (strcmp(word, state.word) == 0)
            return state.code;
    return 0;
}

void find_wired_uplink(char *buffer, size_t size)
{
    for (const char *const name : kWiredUplinks) {
        if (!iface_is_up(name))
            continue;
        copy_text(buffer, size, name);
        return;
    }
}

} // namespace

int set_iface_ip(const char *ifname, const char *ip)
{
    const IfaceSocket socket;
    if (!socket) {
        log_error("unable to open sock");
        return -1;
    }
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    // On purpose: a text that is no address is 0, and leaves 0.0.0.0.
    if (!ip || inet_pton(AF_INET, ip, &address.sin_addr) < 0) {
        log_error("inet_pton failed");
        return -1;
    }
    ifreq request = {};
    memcpy(&request.ifr_addr, &address, sizeof address);
    if (!socket.issue(SIOCSIFADDR, ifname, request)) {
        log_error("ioctl SIOCSIFADDR failed");
        return -1;
    }
    return 0;
}

int get_iface_ip(const char *ifname, uint32_t *addr)
{
    const IfaceSocket socket;
    if (!socket) {
        log_error("unable to open sock");
        return -1;
    }
    if (!socket.get_address(SIOCGIFADDR, ifname, *addr)) {
        log_debug("ioctl SIOCGIFADDR failed");
        return -1;
    }
    return 0;
}

int get_iface_index(const char *ifname, int *index)
{
    if (!ifname || ifname[0] == '\0')
        return -1;
    const IfaceSocket socket;
    if (!socket) {
        log_error("unable to open sock");
        return -1;
    }
    if (!socket.get_index(ifname, *index)) {
        log_error("ioctl SIOCGIFINDEX failed");
        return -1;
    }
    return 0;
}

int iface_is_up(const char *ifname)
{
    const IfaceSocket socket;
    if (!socket) {
        log_error("unable to open sock");
        return 0;
    }
    int flags;
    if (!socket.get_flags(ifname, flags)) {
        log_error("ioctl SIOCGIFFLAGS failed on %s", ifname ? ifname : "");
        return 0;
    }
    return (flags & IFF_UP) != 0;
}

int get_wireless_uplink_state(void)
{
    char word[kWord];
    read_name(kUplink, word, sizeof word);
    return code_of(word, kWirelessStates);
}

int get_uplink_device(char *buf, size_t len)
{
    char word[kWord];
    read_name(kUplink, word, sizeof word);
    const int code = code_of(word, kNoUplink);
    if (code != 0 || !buf || len == 0)
        return code;
    if (word[0] == '\0') {
        find_wired_uplink(buf, len);
        return 0;
    }
    read_name(kUplinkIfname, buf, len);
    if (buf[0] == '\0')
        read_name(kUplinkPort, buf, len);
    return 0;
}

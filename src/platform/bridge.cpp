#include <zorv/bridge.h>

#include <cstring>

#include <net/if.h>
#include <zorv/file.h>
#include <zorv/format.h>

#include "core/own.h"
#include "core/text_tools.h"

using namespace zorv;

namespace {

constexpr int kForwarding = 3;

bool read_port_no(const char *folder, const char *name, unsigned &number)
{
    const File file(fopen_format("re", "%s/%s/port_no", folder, name));
    return file && fscanf(file.get(), "0x%31x", &number) == 1;
}

} // namespace

int get_br_port_state(const char *bridge, const char *ifname)
{
    if (!bridge || !ifname)
        return -1;
    const File file(fopen_format("re", "/sys/class/net/%s/brif/%s/state", bridge, ifname));
    int state;
    return file && fscanf(file.get(), "%31d", &state) == 1 ? state : -1;
}

int is_brif_disabled(const char *bridge, const char *ifname)
{
    return get_br_port_state(bridge, ifname) < 1;
}

int is_brif_forwarding(const char *bridge, const char *ifname)
{
    return get_br_port_state(bridge, ifname) == kForwarding;
}

int get_ifname_from_br_portno(const char *bridge, unsigned port_no, char *ifname)
{
    char path[PATH_MAX];
    if (!bridge || !ifname ||
        snprintf(path, sizeof path, "/sys/class/net/%s/brif", bridge) >= PATH_MAX)
        return 0;
    const Dir folder(opendir(path));
    while (const dirent *const entry = folder ? readdir(folder.get()) : nullptr) {
        unsigned number;
        if (entry->d_type != DT_LNK || !read_port_no(path, entry->d_name, number) ||
            number != port_no)
            continue;
        copy_text(ifname, IF_NAMESIZE, entry->d_name);
        return 1;
    }
    return 0;
}

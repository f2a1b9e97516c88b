#include "platform/bridge_fdb_table.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <linux/neighbour.h>
#include <zorv/file.h>

#include "core/own.h"
#include "platform/iface_request.h"
#include "platform/netlink.h"

using namespace zorv;

static_assert(offsetof(fdb_record, port_no) == 6 && offsetof(fdb_record, is_local) == 7 &&
              offsetof(fdb_record, ageing_timer) == 8 && offsetof(fdb_record, port_hi) == 12 &&
              sizeof(fdb_record) == 24);

namespace {

constexpr char kInterfaces[] = "/sys/class/net";

int hex_digit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

struct Path {
    char text[PATH_MAX];
};

// Paths are as long as their names want; one that does not fit names nothing.
Path path_of(const char *bridge, const char *entry)
{
    Path path;
    const int length =
        snprintf(path.text, sizeof path.text, "%s/%s/%s", kInterfaces, bridge, entry);
    if (length < 0 || static_cast<size_t>(length) >= sizeof path.text)
        path.text[0] = '\0';
    return path;
}

Fd open_table(const char *path)
{
    return Fd(open(path, O_RDONLY | O_CLOEXEC));
}

ssize_t read_on(const Fd &file, void *room, size_t size)
{
    return TEMP_FAILURE_RETRY(read(file.get(), room, size));
}

// The next entry of a folder; at its end errno is 0, else it is the error.
const dirent *next_entry(DIR *folder)
{
    errno = 0;
    return readdir(folder);
}

// Whether a name is the given one, or goes on with a point behind it.
bool is_or_extends(const char *name, const char *given)
{
    const size_t length = strlen(given);
    return strncmp(name, given, length) == 0 && (name[length] == '.' || name[length] == '\0');
}

bool is_excluded(const char *name, const char *const *exclude)
{
    for (; exclude && *exclude; ++exclude)
        if (is_or_extends(name, *exclude))
            return true;
    return false;
}

// The ports of a bridge whose entries are wanted.
struct Ports {
    unsigned count = 0;
    bool wanted[256] = {}; // by the low 8 bits of their numbers
    char last[NAME_MAX + 1] = "";
};

void print_error(const char *path)
{
    fprintf(stderr, "%s: %s\n", path, strerror(errno));
}

// Unless it just is not there.
void print_failure(const char *path)
{
    if (errno != 0 && errno != ENOENT && errno != ENOTDIR)
        print_error(path);
}

// Adds a port, unless its number cannot be read.
void add_port(int folder, const char *name, Ports &ports)
{
    char path[NAME_MAX + sizeof "/port_no"];
    snprintf(path, sizeof path, "%s/port_no", name);
    errno = 0;
    const long number = freadlongat(folder, path, -1);
    if (number < 0)
        return print_failure(path);
    ports.wanted[number & 0xFF] = true;
    ports.count++;
    snprintf(ports.last, sizeof ports.last, "%s", name);
}

void collect_ports(DIR *folder, const char *const *exclude, Ports &ports)
{
    while (const dirent *const entry = next_entry(folder)) {
        if (ports.count == MAX_ETH_PORTS)
            break;
        if (entry->d_name[0] != '.' && !is_excluded(entry->d_name, exclude))
            add_port(dirfd(folder), entry->d_name, ports);
    }
    if (ports.count == MAX_ETH_PORTS)
        fprintf(stderr, "%s: WARN: MAX_ETH_PORTS hit!\n", "_fdb_foreach_on_bridge");
}

void visit_bridge(const char *bridge, const char *const *exclude, fdb_callback callback, void *user)
{
    Path path = path_of(bridge, "brif");
    const Dir folder(opendir(path.text));
    if (!folder)
        return print_failure(path.text); // mostly it is no bridge
    Ports ports;
    collect_ports(folder.get(), exclude, ports);
    if (errno != 0)
        return print_error(path.text);

    path = path_of(bridge, "brforward");
    const Fd table = open_table(path.text);
    if (!table)
        return print_error(path.text);
    fdb_record record;
    ssize_t size;
    // On purpose 24 bytes, as the switch driver publishes them, although the kernel's have 16.
    while ((size = read_on(table, &record, sizeof record)) == sizeof record)
        if (ports.wanted[record.port_no])
            callback(user, &record, ports.last);
    if (size < 0)
        print_error(path.text);
}

// Reports the step of fdb_delneigh() that failed by the number that its callers know.
int fail_delneigh(int line)
{
    const int rc = -errno;
    fprintf(stderr, "%s: %d on line %d\n", "fdb_delneigh", rc, line);
    return rc;
}

} // namespace

namespace zorv {

bool read_mac(const char *text, uint8_t (&mac)[6])
{
    for (size_t i = 0; i < sizeof mac; ++i, text += 3) {
        const int high = hex_digit(text[0]);
        const int low = high < 0 ? -1 : hex_digit(text[1]);
        if (low < 0 || text[2] != (i + 1 < sizeof mac ? ':' : '\0'))
            return false;
        mac[i] = static_cast<uint8_t>(high << 4 | low);
    }
    return true;
}

bool find_record(std::span<const uint8_t> records, const uint8_t (&mac)[6], fdb_record &record)
{
    for (; records.size() >= kKernelRecord; records = records.subspan(kKernelRecord)) {
        if (memcmp(records.data(), mac, sizeof mac) != 0)
            continue;
        record = {};
        memcpy(&record, records.data(), kKernelRecord);
        return true;
    }
    return false;
}

} // namespace zorv

int get_mac_brinfo(const char *bridge, const char *mac, unsigned *age_seconds, unsigned *port)
{
    uint8_t wanted[6];
    if (!bridge || !mac || !read_mac(mac, wanted))
        return 0;
    const Fd table = open_table(path_of(bridge, "brforward").text);
    if (table.get() <= 0) // On purpose descriptor 0, too; kept for callers built against it.
        return 0;
    uint8_t block[kTableBlock];
    fdb_record record;
    ssize_t size;
    while ((size = read_on(table, block, sizeof block)) > 0) {
        if (!find_record({block, static_cast<size_t>(size)}, wanted, record))
            continue;
        if (age_seconds)
            *age_seconds = record.ageing_timer / 100;
        if (port)
            *port = record.port_no;
        return 1;
    }
    return 0;
}

void fdb_foreach(const char *bridge_prefix, const char **exclude, fdb_callback callback, void *user)
{
    const Dir folder(opendir(kInterfaces));
    if (!folder)
        return print_error(kInterfaces);
    while (const dirent *const entry = next_entry(folder.get()))
        if (callback && entry->d_name[0] != '.' &&
            (!bridge_prefix || is_or_extends(entry->d_name, bridge_prefix)))
            visit_bridge(entry->d_name, exclude, callback, user);
    if (errno != 0)
        print_error(kInterfaces);
}

int fdb_delneigh(const uint8_t mac[6], const char *ifname)
{
    if (!mac)
        return -EINVAL;
    const IfaceSocket interfaces;
    if (!interfaces)
        return fail_delneigh(140);
    ndmsg fixed = {};
    fixed.ndm_family = AF_BRIDGE;
    fixed.ndm_type = 1;
    if (!interfaces.get_index(ifname, fixed.ndm_ifindex))
        return fail_delneigh(145);
    const Fd socket = open_route_socket(SOCK_RAW);
    if (!socket)
        return fail_delneigh(149);
    uint8_t address[6];
    memcpy(address, mac, sizeof address);
    NetlinkRequest request(RTM_DELNEIGH, NLM_F_REQUEST, fixed, NDA_LLADDR, address);
    request.sign(static_cast<uint32_t>(time(nullptr)), static_cast<uint32_t>(getpid()));
    return request.send_on(socket) ? 0 : fail_delneigh(165);
}

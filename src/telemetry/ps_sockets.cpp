#include "telemetry/ps_sockets.h"

#include <cstring>
#include <iterator>

#include "core/log_gate.h"
#include "core/text_tools.h"
#include "telemetry/proc_table.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "libzorv_proc";
constexpr uint32_t kListens = 0x10000;  // the kernel's __SO_ACCEPTCON in a unix socket's flags
constexpr uint32_t kUdpConnected = 1;   // the only two states
constexpr uint32_t kUdpUnconnected = 7; // that a UDP socket has
constexpr uint32_t kInetStateCount = 13;
constexpr uint32_t kUnixTypeCount = 6;

// In the order in which they are read: of sockets with the same inode the first one stays.
constexpr struct {
    char path[16];
    uint32_t kind;
} kTables[] = {
    {"/proc/net/unix", ZORV_SOCKET_UNIX}, {"/proc/net/tcp", ZORV_SOCKET_TCP},
    {"/proc/net/tcp6", ZORV_SOCKET_TCP6}, {"/proc/net/udp", ZORV_SOCKET_UDP},
    {"/proc/net/udp6", ZORV_SOCKET_UDP6},
};

bool is_udp(uint32_t kind)
{
    return kind == ZORV_SOCKET_UDP || kind == ZORV_SOCKET_UDP6;
}

uint32_t inet_state(uint32_t kind, uint32_t number)
{
    const bool known = is_udp(kind) ? number == kUdpConnected || number == kUdpUnconnected
                                    : number < kInetStateCount;
    return known ? number : 0;
}

// On purpose: a free socket, 0, stays the unknown state; kept for readers of the JSON.
uint32_t unix_state(uint32_t number, uint32_t flags)
{
    constexpr uint32_t kStates[] = {0, 2, 4, 5, 6};
    if (number == 1 && (flags & kListens) != 0)
        return 3;
    return number < std::size(kStates) ? kStates[number] : 0;
}

void free_socket(zorv_socket_record *record)
{
    if (record->kind == ZORV_SOCKET_UNIX && record->data.local)
        free(record->data.local->path);
    free(record->kind == ZORV_SOCKET_UNIX ? static_cast<void *>(record->data.local)
                                          : record->data.inet);
    free(record);
}
using Socket = std::unique_ptr<zorv_socket_record, Closer<free_socket>>;

Socket init_socket_inode(uint32_t inode, uint32_t kind)
{
    Socket record(static_cast<zorv_socket_record *>(calloc(1, sizeof(zorv_socket_record))));
    if (!record) {
        log_error("Failed to init socket inode");
        return nullptr;
    }
    record->inode = inode;
    record->kind = kind;
    return record;
}

// Each takes the line's data over into the record; false when memory is short.
bool set_data(zorv_socket_record &record, const InetLine &line)
{
    record.data.inet = static_cast<zorv_inet_socket *>(malloc(sizeof(zorv_inet_socket)));
    if (!record.data.inet)
        return false;
    *record.data.inet = line.socket;
    return true;
}

bool set_data(zorv_socket_record &record, const UnixLine &line)
{
    record.data.local = static_cast<zorv_unix_socket *>(malloc(sizeof(zorv_unix_socket)));
    if (!record.data.local)
        return false;
    *record.data.local = line.socket;
    record.data.local->path = line.path[0] ? duplicate(line.path).release() : nullptr;
    return line.path[0] == '\0' || record.data.local->path;
}

// Puts the record into the table, which owns it from then on; false when memory is short.
bool insert(zorv_socket_cache &cache, Socket &socket)
{
    zorv_socket_record *const record = socket.get();
    HASH_ADD(hh, cache.sockets, inode, sizeof record->inode, record);
    if (!record->hh.tbl)
        return false;
    static_cast<void>(socket.release());
    return true;
}

template <class Line>
void add_socket(zorv_socket_cache &cache, uint32_t kind, const Line &line)
{
    if (find_socket(&cache, line.inode)) { // 0 comes often: sockets that no process has any more
        log_debug("Duplicate socket inode %d", static_cast<int>(line.inode));
        return;
    }
    Socket record = init_socket_inode(line.inode, kind);
    if (!record)
        return;
    if (!set_data(*record, line) || !insert(cache, record))
        log_error("Error: Failed to init %s socket data",
                  kind == ZORV_SOCKET_UNIX ? "unix" : "udp/tcp");
}

// False when the table could not be read to its end; one that is not there has no sockets.
bool parse_sockets(zorv_socket_cache &cache, const char *path, uint32_t kind)
{
    ProcTable<kSocketLine> table(path);
    if (!table) {
        log_error("Failed to open '%s': %s", path, strerror(errno));
        return true;
    }
    while (const char *const line = table.next()) {
        InetLine inet;
        UnixLine local;
        if (kind == ZORV_SOCKET_UNIX && parse_unix_line(line, local))
            add_socket(cache, kind, local);
        else if (kind != ZORV_SOCKET_UNIX && parse_inet_line(line, kind, inet))
            add_socket(cache, kind, inet);
    }
    if (table.error() != 0)
        log_error("Failed to read '%s': %s", path, strerror(table.error()));
    return table.error() == 0;
}

} // namespace

bool zorv::parse_inet_line(const char *line, uint32_t kind, InetLine &parsed)
{
    unsigned state;
    unsigned long inode;
    if (sscanf(line,
               "%*d: %*X:%X %*X:%X %X %*X:%*X %*X:%*X %*X %*u %*d %lu", // addresses do not matter
               &parsed.socket.local_port, &parsed.socket.remote_port, &state, &inode) != 4)
        return false;
    parsed.socket.state = inet_state(kind, state);
    parsed.inode = static_cast<uint32_t>(inode);
    return true;
}

bool zorv::parse_unix_line(const char *line, UnixLine &parsed)
{
    unsigned references, flags, type, state;
    unsigned long inode;
    parsed.path[0] = '\0';
    if (sscanf(line, "%*p: %X %*X %X %X %X %lu %255s", &references, &flags, &type, &state, &inode,
               parsed.path) < 5)
        return false;
    parsed.inode = static_cast<uint32_t>(inode);
    parsed.socket = {references, type < kUnixTypeCount ? type : 0, unix_state(state, flags),
                     nullptr};
    return true;
}

void zorv::free_sockets(zorv_socket_cache *cache)
{
    zorv_socket_record *record = cache->sockets;
    HASH_CLEAR(hh, cache->sockets);
    while (record) {
        const auto next = static_cast<zorv_socket_record *>(record->hh.next);
        free_socket(record);
        record = next;
    }
    free(cache);
}

Sockets zorv::cache_sockets()
{
    Sockets cache(static_cast<zorv_socket_cache *>(calloc(1, sizeof(zorv_socket_cache))));
    if (!cache) {
        log_error("Failed to alloc socket hash table");
        return nullptr;
    }
    for (const auto &table : kTables) {
        if (!parse_sockets(*cache, table.path, table.kind))
            return nullptr;
    }
    return cache;
}

const zorv_socket_record *zorv::find_socket(const zorv_socket_cache *cache, uint32_t inode)
{
    zorv_socket_record *record = nullptr;
    if (cache)
        HASH_FIND(hh, cache->sockets, &inode, sizeof inode, record);
    return record;
}

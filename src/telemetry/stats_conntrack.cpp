#include "telemetry/stats_conntrack.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "core/log_gate.h"
#include "core/own.h"
#include "core/text_tools.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "libzorv_proc";
constexpr char kConntrack[] = "/proc/net/nf_conntrack";

using Hosts = std::unique_ptr<conntrack_hosts_t, Closer<free_conntrack_hosts>>;

void free_host(conntrack_host *host)
{
    free(host->host);
    free(host);
}
using Host = std::unique_ptr<conntrack_host, Closer<free_host>>;

Host make_host(std::string_view address)
{
    Host host(static_cast<conntrack_host *>(calloc(1, sizeof(conntrack_host))));
    if (!host)
        return nullptr;
    host->host = duplicate(address).release();
    if (!host->host)
        return nullptr;
    return host;
}

// From behind the first such name to the next blank; empty without a blank.
std::string_view find_value(std::string_view line, std::string_view name)
{
    const size_t at = line.find(name);
    if (at == line.npos)
        return {};
    line.remove_prefix(at + name.size());
    const size_t end = line.find(' ');
    return end == line.npos ? std::string_view() : std::string_view(line.data(), end);
}

// The host of the table, added with a count of 0 where it is new; NULL when memory is short.
conntrack_host *find_or_insert(conntrack_hosts_t &hosts, std::string_view address)
{
    unsigned hash;
    HASH_VALUE(address.data(), address.size(), hash);
    conntrack_host *found;
    HASH_FIND_BYHASHVALUE(hh, hosts.hosts, address.data(), address.size(), hash, found);
    if (found)
        return found;
    Host host = make_host(address);
    if (!host)
        return nullptr;
    conntrack_host *const added = host.get();
    HASH_ADD_KEYPTR_BYHASHVALUE(hh, hosts.hosts, added->host, address.size(), hash, added);
    if (!added->hh.tbl)
        return nullptr;
    return host.release(); // the table owns it from here
}

void add_conntrack_host(conntrack_hosts_t &hosts, std::string_view address)
{
    if (address.empty())
        return;
    if (conntrack_host *const host = find_or_insert(hosts, address))
        ++host->count;
    else
        log_error("Failed to alloc host");
}

int by_count(const conntrack_host *a, const conntrack_host *b)
{
    return b->count - a->count;
}

} // namespace

Connection zorv::parse_connection(std::string_view line)
{
    if (!begins_with(line, "ipv4") && !begins_with(line, "ipv6"))
        return {};
    return {find_value(line, "src="), find_value(line, "dst=")};
}

void zorv::count_hosts(ConntrackTable &table, conntrack_hosts_t &hosts)
{
    while (const char *const line = table.next()) {
        const Connection connection = parse_connection(line);
        add_conntrack_host(hosts, connection.source);
        add_conntrack_host(hosts, connection.destination);
    }
}

void zorv::sort_hosts(conntrack_hosts_t &hosts)
{
    HASH_SORT(hosts.hosts, by_count);
}

conntrack_hosts_t *get_top_conntrack_hosts(void)
{
    ConntrackTable table(kConntrack);
    if (!table) {
        log_error("Failed to open '%s': %s", kConntrack, strerror(errno));
        return nullptr;
    }
    Hosts hosts(static_cast<conntrack_hosts_t *>(calloc(1, sizeof(conntrack_hosts_t))));
    if (!hosts) {
        log_error("Failed to alloc hash table");
        return nullptr;
    }
    count_hosts(table, *hosts);
    if (table.error() != 0) {
        log_error("Failed to read '%s': %s", kConntrack, strerror(table.error()));
        return nullptr;
    }
    sort_hosts(*hosts);
    return hosts.release();
}

void free_conntrack_hosts(conntrack_hosts_t *hosts)
{
    if (!hosts)
        return;
    conntrack_host *host = hosts->hosts;
    HASH_CLEAR(hh, hosts->hosts);
    while (host) {
        const auto next = static_cast<conntrack_host *>(host->hh.next);
        free_host(host);
        host = next;
    }
    free(hosts);
}

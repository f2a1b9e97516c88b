#include <cerrno>
#include <cmath>

#include "base/ask.h"
#include "base/cli.h"
#include "diagnostics.h"

namespace ctl {
namespace {

struct ConntrackArgs {
    size_t most = 10;
};

void mem(const NoArgs &, Reply &reply)
{
    reply.pairs(memory_value());
}

void conntrack(const ConntrackArgs &args, Reply &reply)
{
    // A host for which memory is short is left out: errno tells.
    const Hosts hosts = ask(kConntrack, [] { return Hosts(get_top_conntrack_hosts()); });
    if (!hosts)
        throw Failure(Exit::unavailable,
                      std::string(kConntrack) +
                          ": not there; the kernel needs CONFIG_NF_CONNTRACK_PROCFS, and "
                          "connection tracking in use");
    reply.table("hosts", hosts_value(*hosts, args.most), {"host", "count"});
    reply.document.set("total", HASH_CNT(hh, hosts->hosts));
}

constexpr Option kHosts[] = {
    option<&ConntrackArgs::most>("-n", "How many hosts at most, 10 unless given"),
};

constexpr Verb kVerbs[] = {
    verb<mem>("mem", "Show how memory is used, in kB", "zorvctl mem --json"),
    verb<conntrack>("conntrack", "List the hosts with the most tracked connections",
                    "zorvctl conntrack -n 3", kHosts),
};

} // namespace

Value memory_value()
{
    meminfo_t memory;
    if (meminfo(&memory) != 0)
        throw io_failure("/proc/meminfo", errno);
    if (memory.MemTotal == 0)
        throw Failure(Exit::failed, "/proc/meminfo: no MemTotal");
    Value object = Value::take(zorv_meminfo_to_obj(&memory));
    return object.set("used_percent", std::round(double{memory.used_percent} * 100) / 100);
}

Value hosts_value(const conntrack_hosts_t &hosts, size_t most)
{
    Value list = Value::list();
    for (const conntrack_host *host = hosts.hosts; host && list.size() < most;
         host = static_cast<const conntrack_host *>(host->hh.next)) {
        Value object = Value::object();
        list.add(object.set("host", host->host).set("count", host->count));
    }
    return list;
}

extern const Family stats_family = {nullptr, nullptr, {kVerbs}};

} // namespace ctl

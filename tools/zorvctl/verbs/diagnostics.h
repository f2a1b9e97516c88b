// diagnostics.h - what runs, what it has open, memory and connections, as values.
#ifndef ZORVCTL_DIAGNOSTICS_H
#define ZORVCTL_DIAGNOSTICS_H

#include <memory>
#include <optional>
#include <string>

#include <zorv/ps.h>
#include <zorv/stats.h>

#include "base/output.h"
#include "core/own.h"

namespace ctl {

using PsList = std::unique_ptr<zorv_ps_list, zorv::Closer<zorv_ps_list_free>>;
using Hosts = std::unique_ptr<conntrack_hosts_t, zorv::Closer<free_conntrack_hosts>>;

constexpr char kConntrack[] = "/proc/net/nf_conntrack";

// Those of that name, all for an empty one. Throws when /proc cannot be read.
PsList list_processes(bool with_fds, const std::string &name = "");

// Shows the processes of a list as "processes": as they stand, or by a place in "pid|ppid|rss|vsz|
// fd_count|comm", sizes and counts the largest first.
constexpr int kByRss = 2;
void show_processes(const zorv_ps_list &list, std::optional<int> key, Reply &reply);

// The 25 numbers of /proc/meminfo and "used_percent". Throws when it cannot be read.
Value memory_value();

// The first hosts of a table.
Value hosts_value(const conntrack_hosts_t &hosts, size_t most);

} // namespace ctl

#endif

// stats_conntrack.h - hosts from a table in the form of /proc/net/nf_conntrack.
#ifndef ZORV_TELEMETRY_STATS_CONNTRACK_H
#define ZORV_TELEMETRY_STATS_CONNTRACK_H

#include <string_view>

#include <zorv/stats.h>

#include "telemetry/proc_table.h"

namespace zorv {

using ConntrackTable = ProcTable<320>;

// The two ends of a connection, borrowed from its line; empty where the line lacks one.
struct Connection {
    std::string_view source;
    std::string_view destination;
};

Connection parse_connection(std::string_view line);

// Adds every host of the table, in the order of first appearance.
void count_hosts(ConntrackTable &table, conntrack_hosts_t &hosts);

// The largest count first; hosts of equal count keep their order.
void sort_hosts(conntrack_hosts_t &hosts);

} // namespace zorv

#endif

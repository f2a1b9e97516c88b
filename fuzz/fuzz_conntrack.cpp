// Any text as the connection-tracking table: the same hosts, counts and order as a plain count of
// the same lines.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <zorv/log.h>

#include "core/lines.h"
#include "telemetry/stats_conntrack.h"
#include "temporary_file.h"

using namespace zorv;

namespace {

using Hosts = std::unique_ptr<conntrack_hosts_t, Closer<free_conntrack_hosts>>;
using Counts = std::vector<std::pair<std::string, int>>;

void count(Counts &counts, const std::string &line, const char *name)
{
    const size_t begin = line.find(name);
    const size_t end = begin == line.npos ? line.npos : line.find(' ', begin);
    if (end == line.npos || end == begin + 4)
        return;
    const std::string host = line.substr(begin + 4, end - begin - 4);
    const auto found = std::find_if(counts.begin(), counts.end(),
                                    [&host](const auto &entry) { return entry.first == host; });
    if (found == counts.end())
        counts.emplace_back(host, 1);
    else
        ++found->second;
}

Counts count_plainly(FILE *stream)
{
    Counts counts;
    Lines<320> lines(stream);
    while (const char *const line = lines.next()) {
        const std::string text = line;
        if (text.substr(0, 4) != "ipv4" && text.substr(0, 4) != "ipv6")
            continue;
        count(counts, text, "src=");
        count(counts, text, "dst=");
    }
    std::stable_sort(counts.begin(), counts.end(),
                     [](const auto &a, const auto &b) { return a.second > b.second; });
    return counts;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const File stream(size > 0 ? fmemopen(const_cast<uint8_t *>(data), size, "r") : nullptr);
    if (!stream)
        return 0;
    const TemporaryFile file(data, size);
    ConntrackTable table(file.path());
    const Hosts hosts(static_cast<conntrack_hosts_t *>(calloc(1, sizeof(conntrack_hosts_t))));
    count_hosts(table, *hosts);
    sort_hosts(*hosts);
    const conntrack_host *host = hosts->hosts;
    for (const auto &[name, appearances] : count_plainly(stream.get())) {
        if (!host || name != host->host || appearances != host->count)
            abort();
        host = static_cast<const conntrack_host *>(host->hh.next);
    }
    if (host)
        abort();
    return 0;
}

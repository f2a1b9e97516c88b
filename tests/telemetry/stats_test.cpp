#include <zorv/stats.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <memory>

#include <sys/sysinfo.h>

#include "support/device.h"
#include "support/json.h"

namespace {

using Stats = Device;

struct FreeHosts {
    void operator()(conntrack_hosts_t *hosts) const { free_conntrack_hosts(hosts); }
};
using Hosts = std::unique_ptr<conntrack_hosts_t, FreeHosts>;

constexpr char kMeminfo[] = "/proc/meminfo";

TEST_F(Stats, MeminfoIsTheKernelsInTheDocumentedOrder)
{
    kernel_proc();
    meminfo_t memory;
    ASSERT_EQ(meminfo(&memory), 0);
    std::istringstream lines(read(kMeminfo));
    uint64_t total = 0, limit = 0;
    for (std::string key, line; lines >> key && std::getline(lines, line);) {
        if (key == "MemTotal:")
            total = std::stoull(line);
        if (key == "CommitLimit:")
            limit = std::stoull(line);
    }
    EXPECT_EQ(memory.MemTotal, total);
    EXPECT_EQ(memory.CommitLimit, limit);
    EXPECT_GT(memory.used_percent, 0);
    EXPECT_LT(memory.used_percent, 100);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Stats, MeminfoReadsEveryRow)
{
    const char *const keys[] = {
        "MemTotal",       "MemFree",     "MemAvailable", "Buffers",        "Cached",
        "Active",         "Inactive",    "Active(anon)", "Inactive(anon)", "Active(file)",
        "Inactive(file)", "Unevictable", "Mlocked",      "Dirty",          "Writeback",
        "AnonPages",      "Mapped",      "Shmem",        "Slab",           "SReclaimable",
        "SUnreclaim",     "KernelStack", "PageTables",   "CommitLimit",    "Committed_AS",
    };
    std::string text = "SwapTotal: 5 kB\n", expected = "{";
    int number = 1000;
    for (const char *key : keys) {
        text.append(key).append(":   ").append(std::to_string(++number)).append(" kB\n");
        expected.append(number > 1001 ? ",\"" : "\"").append(key).append("\":");
        expected.append(std::to_string(number));
    }
    file(kMeminfo, text + "MemTotal: 7 kB\nno colon here\n"); // behind the 25th row: not read
    meminfo_t memory;
    ASSERT_EQ(meminfo(&memory), 0);
    const Json object(zorv_meminfo_to_obj(&memory));
    EXPECT_EQ(dumped(object.get()), expected + "}");
    EXPECT_FLOAT_EQ(memory.used_percent, 100.0F * -2 / 1001 + 0x1p64F * 100 / 1001);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Stats, MeminfoOfOddFiles)
{
    constexpr char kNoColon[] = "[error] libzorv_proc.meminfo(): No colon found";
    const struct {
        const char *text;
        uint64_t total, free;
        float percent;
        size_t messages;
    } rows[] = {
        {"", 0, 0, 0, 0},
        {"MemFree: 5 kB\n", 0, 5, 0, 0},
        {"MemTotal: 200 kB\nMemAvailable: 50 kB\n", 200, 0, 75, 0},
        {"MemTotal: 200 kB\n", 200, 0, 100, 0}, // an old kernel
        {"MemTotal: 200 kB", 200, 0, 100, 0},
        {"\nMemTotal 5\nMemTotal: 200\n", 200, 0, 100, 2},
        {" MemTotal: 1\nmemtotal: 2\nMemTotal : 3\n", 0, 0, 0, 0},
        {"MemTotal: 200 kB\nMemTotal: 100 kB\nMemFree: x\n", 100, 0, 100, 0},
        // Read as "Padded:" and 24 blanks, then as the line "MemTotal: 9".
        {"Padded:                        MemTotal: 9\n", 9, 0, 100, 0},
        {"MemTotal:                             9\n", 0, 0, 0, 1},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text);
        file(kMeminfo, row.text);
        meminfo_t memory;
        memory.MemFree = 77;
        EXPECT_EQ(meminfo(&memory), 0);
        EXPECT_EQ(memory.MemTotal, row.total);
        EXPECT_EQ(memory.MemFree, row.free);
        EXPECT_EQ(memory.used_percent, row.percent);
        EXPECT_THAT(logged(), testing::AllOf(testing::SizeIs(row.messages),
                                             testing::Each(std::string(kNoColon))));
    }
}

TEST_F(Stats, PercentFallsBackToTheCallersNumbers)
{
    struct sysinfo info = {};
    info.totalram = 1000;
    info.freeram = 250;
    file(kMeminfo, "MemTotal: 100 kB\nMemAvailable: 60 kB\n");
    EXPECT_EQ(get_memused_percent(&info), 40);
    remove(kMeminfo);
    EXPECT_EQ(get_memused_percent(&info), 75);

    meminfo_t memory = {};
    memory.MemFree = 77;
    logged();
    EXPECT_EQ(meminfo(&memory), -1);
    EXPECT_EQ(memory.MemFree, 77u);
    EXPECT_THAT(logged(), ElementsAre("[error] libzorv_proc.meminfo(): Failed to open "
                                      "'/proc/meminfo': No such file or directory"));
}

constexpr char kConntrack[] = "/proc/net/nf_conntrack";

// The hosts as "address count", from the head.
std::vector<std::string> top(const std::string &table)
{
    Device::file(kConntrack, table);
    const Hosts hosts(get_top_conntrack_hosts());
    std::vector<std::string> found;
    for (auto *host = hosts->hosts; host; host = static_cast<conntrack_host *>(host->hh.next))
        found.push_back(host->host + (" " + std::to_string(host->count)));
    return found;
}

TEST_F(Stats, HostsByTheirConnections)
{
    const std::string tcp = "ipv4     2 tcp      6 431999 ESTABLISHED ";
    EXPECT_THAT(top(tcp +
                    "src=192.0.2.1 dst=198.51.100.1 sport=1 dport=2 "
                    "src=198.51.100.1 dst=203.0.113.1 sport=2 dport=1 [ASSURED] use=1\n" +
                    tcp +
                    "src=192.0.2.2 dst=198.51.100.2 sport=1 dport=2 use=1\n"
                    "ipv6     10 udp     17 29 src=2001:0db8:0000:0000:0000:0000:0000:0001 "
                    "dst=198.51.100.2 sport=1 dport=2 use=1\n" +
                    tcp +
                    "src=192.0.2.3 dst=192.0.2.3 sport=1 dport=2 use=1\n"
                    "unknown  2 igmp     2 5 src=192.0.2.9 dst=224.0.0.1 use=1\n"),
                ElementsAre("198.51.100.2 2", "192.0.2.3 2", "192.0.2.1 1", "198.51.100.1 1",
                            "192.0.2.2 1", "2001:0db8:0000:0000:0000:0000:0000:0001 1"));
}

TEST_F(Stats, HostsOfOddTables)
{
    const std::string blanks(318, ' ');
    const std::pair<std::string, std::vector<std::string>> rows[] = {
        {"", {}},
        {"unknown src=a dst=b \n", {}},
        {"ipv4 src=a dst=b\n", {"a 1"}}, // no blank behind b
        {"ipv4 src=a\n", {}},
        {"ipv4 dst=b src=a ", {"a 1", "b 1"}}, // the source first
        {"ipv4 src= dst=b ", {"b 1"}},
        {"ipv4src=dst=b ", {"dst=b 1", "b 1"}}, // both are found before either is cut
        {"ipv5 src=a dst=b \nIPV4 src=a dst=b \n", {}},
        {"ipv4 src=1:same-end dst=2:same-end \nipv4 src=2:same-end dst=1:same-end \n",
         {"1:same-end 2", "2:same-end 2"}},
        {"ipv4 src=same-end dst=1:same-end \n", {"same-end 1", "1:same-end 1"}},
        {std::string("ipv4 src=a \0 dst=b \n", 20), {"a 1"}}, // a line ends at a NUL
        // Pieces of 319 bytes: the address is cut and not taken; the rest is a line again.
        {"ipv4 " + blanks.substr(0, 309) + "src=a dst=b \n", {}},
        {"ipv4 " + blanks.substr(0, 314) + "ipv6 src=a dst=b \n", {"a 1", "b 1"}},
    };
    for (const auto &[table, hosts] : rows) {
        SCOPED_TRACE(table);
        EXPECT_EQ(top(table), hosts);
    }
    EXPECT_THAT(logged(), IsEmpty());
    remove(kConntrack);
    EXPECT_EQ(get_top_conntrack_hosts(), nullptr);
    EXPECT_THAT(logged(),
                ElementsAre("[error] libzorv_proc.get_top_conntrack_hosts(): Failed to open "
                            "'/proc/net/nf_conntrack': No such file or directory"));
    free_conntrack_hosts(nullptr);
}

TEST_F(Stats, TextOfAHostIsAnAllocationOfItsOwn)
{
    file(kConntrack, "ipv4 src=a dst=b \n");
    const Hosts hosts(get_top_conntrack_hosts());
    free(hosts->hosts->host);
    hosts->hosts->host = strdup("released with the table");
}

TEST_F(Stats, ManyHostsAreSortedAndFoundByHash)
{
    std::string table;
    for (int host = 0; host < 2000; ++host)
        for (int n = 0; n <= host % 7; ++n)
            table += "ipv4 src=h" + std::to_string(host) + " dst=gateway \n";
    file(kConntrack, table);
    const Hosts hosts(get_top_conntrack_hosts());
    EXPECT_EQ(HASH_COUNT(hosts->hosts), 2001u);
    EXPECT_STREQ(hosts->hosts->host, "gateway");
    conntrack_host *found = nullptr;
    HASH_FIND_STR(hosts->hosts, "h1004", found);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->count, 1004 % 7 + 1);
    int last = INT32_MAX, order = -1;
    for (const conntrack_host *host = hosts->hosts; host;
         host = static_cast<const conntrack_host *>(host->hh.next)) {
        ASSERT_LE(host->count, last);
        const int number = host == hosts->hosts ? -1 : std::stoi(host->host + 1);
        ASSERT_TRUE(host->count < last || number > order); // first seen first
        last = host->count;
        order = number;
    }
}

} // namespace



#include <sys/sysinfo.h>

#include "support/device.h"
#include "support/json.h"

using namespace std::string_literals;

namespace {

using Stats = Device;

constexpr char kMeminfo[] = "/proc/meminfo";
constexpr char kConntrack[] = "/proc/net/nf_conntrack";

using Hosts =
    std::unique_ptr<conntrack_hosts_t,
                    decltype([](conntrack_hosts_t *hosts) { free_conntrack_hosts(hosts); })>;

TEST_F(Stats, MeminfoReadsEveryRow)
{
    std::string text = "SwapTotal: 5 kB\n", expected;
    int number = 1000;
    for (const char *key :
         {"MemTotal",       "MemFree",     "MemAvailable", "Buffers",        "Cached",
          "Active",         "Inactive",    "Active(anon)", "Inactive(anon)", "Active(file)",
          "Inactive(file)", "Unevictable", "Mlocked",      "Dirty",          "Writeback",
          "AnonPages",      "Mapped",      "Shmem",        "Slab",           "SReclaimable",
          "SUnreclaim",     "KernelStack", "PageTables",   "CommitLimit",    "Committed_AS"}) {
        const std::string value = std::to_string(++number);
        text.append(key).append(":   ").append(value).append(" kB\n");
        expected.append(",\"").append(key).append("\":").append(value);
    }
    file(kMeminfo, text + "MemTotal: 7 kB\nno colon here\n"); // behind the 25th row: not read
    meminfo_t memory;
    ASSERT_EQ(meminfo(&memory), 0);
    EXPECT_EQ(dumped(Json(zorv_meminfo_to_obj(&memory)).get()), "{" + expected.substr(1) + "}");
    EXPECT_FLOAT_EQ(memory.used_percent, 100.0F * -2 / 1001 + 0x1p64F * 100 / 1001);
    EXPECT_THAT(logged(), IsEmpty());
}

// The total, the free memory, the percentage and the messages.
TEST_F(Stats, MeminfoOfOddFiles)
{
    constexpr std::pair<const char *, const char *> kRows[] = {
        {"", "0 0 0% 0"},
        {"MemTotal: 200 kB\nMemAvailable: 50 kB\n", "200 0 75% 0"},
        {"\nMemTotal 5\nMemTotal: 200\n", "200 0 100% 2"},
        {" MemTotal: 1\nmemtotal: 2\nMemTotal : 3\n", "0 0 0% 0"},
        {"MemTotal: 200 kB\nMemTotal: 100 kB\nMemFree: x\n", "100 0 100% 0"},
        // Read as "Padded:" and 24 blanks, then as the line "MemTotal: 9".
        {"Padded:                        MemTotal: 9\n", "9 0 100% 0"},
    };
    meminfo_t memory;
    struct sysinfo info = {};
    for (const auto &[text, want] : kRows) {
        file(kMeminfo, text);
        memory.MemFree = 77;
        EXPECT_EQ(meminfo(&memory), 0);
        const auto lines = logged();
        std::ostringstream shown;
        shown << memory.MemTotal << " " << memory.MemFree << " " << get_memused_percent(&info)
              << "% " << lines.size();
        EXPECT_EQ(shown.str(), want) << text;
        EXPECT_THAT(lines, testing::Each("[error] libzorv_proc.meminfo(): No colon found"));
        logged();
    }
    remove(kMeminfo);
    EXPECT_EQ(meminfo(&memory), -1);
    info.totalram = 1000;
    info.freeram = 250;
    EXPECT_EQ(get_memused_percent(&info), 75); // of the caller's numbers
}

// The hosts as "address count,", from the head.
std::string shown(const Hosts &hosts)
{
    std::string text;
    for (auto *host = hosts->hosts; host; host = static_cast<conntrack_host *>(host->hh.next))
        text += host->host + (" " + std::to_string(host->count)) + ",";
    return text;
}

TEST_F(Stats, HostsByTheirConnections)
{
    const std::string blanks(318, ' ');
    std::string many; // more than one read brings
    for (int i = 0; i < 3000; ++i)
        many += "ipv4 src="s + "aca"[i % 3] + " dst=gateway \n";
    const std::pair<std::string, const char *> rows[] = {
        {"ipv4     2 tcp      6 431999 ESTABLISHED src=192.0.2.1 dst=198.51.100.1 sport=1 dport=2 "
         "src=198.51.100.1 dst=203.0.113.1 sport=2 dport=1 [ASSURED] use=1\n"
         "ipv6     10 udp     17 29 src=2001:db8::1 dst=198.51.100.2 sport=1 dport=2 use=1\n"
         "ipv4     2 tcp      6 431999 CLOSE src=192.0.2.3 dst=192.0.2.3 sport=1 dport=2 use=1\n"
         "unknown  2 igmp     2 5 src=192.0.2.9 dst=224.0.0.1 use=1\n",
         "192.0.2.3 2,192.0.2.1 1,198.51.100.1 1,2001:db8::1 1,198.51.100.2 1,"},
        {"ipv4 src=a dst=b\nipv4 src=a\n", "a 1,"}, // no blank behind b
        {"ipv4 dst=b src=a ", "a 1,b 1,"},          // the source first
        {"ipv4src=dst=b ", "dst=b 1,b 1,"},         // both are found before either is cut
        {many, "gateway 3000,a 2000,c 1000,"},      // from the most on
        {"ipv5 src=a dst=b \nIPV4 src=a dst=b \n", ""},
        {std::string("ipv4 src=a \0 dst=b \n", 20), "a 1,"}, // a line ends at a NUL
        // Pieces of 319 bytes: the address is cut and not taken; the rest is a line again.
        {"ipv4 " + blanks.substr(0, 309) + "src=a dst=b \n", ""},
        {"ipv4 " + blanks.substr(0, 314) + "ipv6 src=a dst=b \n", "a 1,b 1,"},
    };
    for (const auto &[table, want] : rows) {
        file(kConntrack, table);
        EXPECT_EQ(shown(Hosts(get_top_conntrack_hosts())), want) << table;
    }
    remove(kConntrack);
    EXPECT_EQ(get_top_conntrack_hosts(), nullptr);
    EXPECT_THAT(logged(),
                ElementsAre("[error] libzorv_proc.get_top_conntrack_hosts(): Failed to open "
                            "'/proc/net/nf_conntrack': No such file or directory"));
    free_conntrack_hosts(nullptr);
}

} // namespace

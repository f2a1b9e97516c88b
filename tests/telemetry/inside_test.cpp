// Every single allocation that may fail: what is left out is logged, the rest stays valid.
#include <zorv/ps.h>
#include <zorv/stats.h>

#include <filesystem>
#include <memory>

#include "core/own.h"
#include "support/allocation.h"
#include "support/device.h"

using namespace zorv;
using testing::ElementsAre;

namespace {

using Memory = Device;
using List = std::unique_ptr<zorv_ps_list, Closer<zorv_ps_list_free>>;
using Hosts = std::unique_ptr<conntrack_hosts_t, Closer<free_conntrack_hosts>>;

constexpr char kPrefix[] = "[error] libzorv_proc.";

TEST_F(Memory, RunsOutForAProcessList)
{
    for (const char *kind : {"tcp6", "udp", "udp6"})
        file(std::string("/proc/net/") + kind, "");
    file("/proc/net/unix", "0000000000000000: 00000002 00000000 00000000 0001 03 41 /a\n");
    file("/proc/net/tcp", "0: 0:1 0:2 1 0:0 0:0 0 0 0 42\n");
    file("/proc/7/stat", "7 (a) S 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 4096 1 0\n");
    file("/proc/7/cmdline", "x");
    std::filesystem::create_directories("/proc/7/fd");
    std::filesystem::create_symlink("/a", "/proc/7/fd/0");
    std::filesystem::create_symlink("socket:[42]", "/proc/7/fd/1");

    const std::string list_failed = "zorv_ps_list_init(): Failed to allocate memory for "
                                    "zorv_ps_list";
    const std::string cache_failed = "cache_sockets(): Failed to alloc socket hash table";
    const std::string inode_failed = "init_socket_inode(): Failed to init socket inode";
    const std::string unix_failed = "add_socket(): Error: Failed to init unix socket data";
    const std::string inet_failed = "add_socket(): Error: Failed to init udp/tcp socket data";
    const std::string fd_failed = "walk_process_fds(): Failed to alloc FD";
    const std::string rows[] = {
        list_failed,         cache_failed, inode_failed,       unix_failed,
        unix_failed,                      // the data, its path,
        unix_failed,         unix_failed, // the hash table and its buckets
        inode_failed,        inet_failed,  "read_process(): ", "read_process(): ",
        "fread_cmdline(): ", fd_failed,    fd_failed,          fd_failed,
    };
    long n = 0;
    for (const std::string &row : rows) {
        SCOPED_TRACE(testing::Message() << "allocation " << n + 1 << ": " << row);
        fail_allocation(++n);
        const List list(zorv_ps_filter(1, nullptr, nullptr));
        const std::vector<std::string> lines = logged();
        ASSERT_FALSE(lines.empty());
        EXPECT_THAT(lines[0], testing::StartsWith(kPrefix + row));
        EXPECT_EQ(list != nullptr, row != list_failed);
        if (row == cache_failed)
            EXPECT_EQ(lines.at(1), "[warn ] libzorv_proc.zorv_ps_filter(): Failed to cache "
                                   "sockets");
        else
            EXPECT_EQ(lines.size(), 1u);
    }
    const long before = allocations();
    const List whole(zorv_ps_filter(1, nullptr, nullptr));
    EXPECT_EQ(allocations() - before, n); // none was left out above
}

TEST_F(Memory, RunsOutForHosts)
{
    std::string table;
    for (int i = 0; i < 400; ++i)
        table += "ipv4 src=h" + std::to_string(i) + " dst=x \n";
    file("/proc/net/nf_conntrack", table);
    fail_allocation(1);
    EXPECT_EQ(get_top_conntrack_hosts(), nullptr);
    EXPECT_THAT(logged(), ElementsAre(kPrefix + std::string("get_top_conntrack_hosts(): Failed to "
                                                            "alloc hash table")));
    const long before = allocations();
    free_conntrack_hosts(get_top_conntrack_hosts());
    const long all = allocations() - before;
    for (long n = 2; n <= all; ++n) { // hosts, and the table growing
        fail_allocation(n);
        const Hosts hosts(get_top_conntrack_hosts());
        EXPECT_THAT(logged(), ElementsAre(kPrefix + std::string("add_conntrack_host(): Failed to "
                                                                "alloc host")));
        ASSERT_STREQ(hosts->hosts->host, "x");
        // One is missing; "x" is found at the next line when it is the one.
        ASSERT_EQ(HASH_COUNT(hosts->hosts), hosts->hosts->count == 400 ? 400u : 401u);
    }
}

} // namespace

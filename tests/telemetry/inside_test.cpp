// Every single allocation that may fail: what is left out is logged, the rest stays valid. And how
// tables are read.
#include <zorv/ps.h>
#include <zorv/stats.h>

#include <filesystem>
#include <memory>

#include <fcntl.h>
#include <unistd.h>

#include "core/own.h"
#include "support/allocation.h"
#include "support/device.h"
#include "support/enter.h"
#include "telemetry/proc_table.h"

using namespace zorv;

namespace {

using Memory = Device;
using Tables = Device;
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

// Jansson's memory is the library's here, and fails with it.
TEST_F(Memory, RunsOutForJson)
{
    json_set_alloc_funcs(malloc, free);
    file("/proc/net/unix", "0000000000000000: 00000002 00000000 00000000 0001 03 41 /a\n");
    file("/proc/7/stat", "7 (a) S 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 4096 1 0\n");
    std::filesystem::create_directories("/proc/7/fd");
    std::filesystem::create_symlink("/a", "/proc/7/fd/0");
    std::filesystem::create_symlink("socket:[41]", "/proc/7/fd/1");
    const auto convert = [](long failing) {
        zorv_ps_list *const list = zorv_ps_filter(1, nullptr, nullptr);
        logged();
        fail_allocation(failing);
        Json array(zorv_ps_list_to_array(list));
        fail_allocations_off();
        return array;
    };
    const auto dump = [](const Json &json) {
        const Text text(json_dumps(json.get(), JSON_COMPACT));
        return std::string(text.get());
    };
    const std::string whole = dump(convert(1000000));
    EXPECT_THAT(whole, testing::HasSubstr("\"state\":\"CONNECTED\""));

    long n = 1;
    for (; !convert(n); ++n) // the array itself, of a block or two
        EXPECT_THAT(logged(), ElementsAre(kPrefix + std::string("zorv_ps_list_to_array(): Failed "
                                                                "to allocate json array")));
    EXPECT_GT(n, 1);
    for (std::string shown; shown != whole; ++n) {
        const Json array = convert(n);
        ASSERT_NE(array, nullptr) << n;
        shown = dump(array);
    }
    EXPECT_GT(n, 30); // each of the members and texts may fail

    const meminfo_t memory = {};
    fail_allocation(1);
    EXPECT_EQ(zorv_meminfo_to_obj(&memory), nullptr);
    EXPECT_THAT(logged(), ElementsAre(kPrefix + std::string("zorv_meminfo_to_obj(): Failed to "
                                                            "allocate json object")));
}

// The lines that a table gives of a pipe, which stands for the kernel: first so many of 8 bytes,
// and one more that comes when those have been read.
size_t lines_of_pipe(size_t first)
{
    int ends[2];
    check(pipe2(ends, O_CLOEXEC), "pipe");
    ProcTable<256> table((Fd(ends[0])));
    Fd out(ends[1]);
    const auto put = [&out](std::string_view text) {
        check(static_cast<int>(write(out.get(), text.data(), text.size())), "write");
    };
    for (size_t n = 0; n < first; ++n)
        put("abcdefg\n");
    size_t count = 0;
    while (count < first && table.next())
        ++count;
    put("more\n");
    out.reset();
    while (table.next())
        ++count;
    return count;
}

TEST_F(Tables, AreNotAskedForLinesThatTheKernelDoesNotHave)
{
    EXPECT_EQ(lines_of_pipe(383), 383u); // there was room for another in the smallest of pages
    EXPECT_EQ(lines_of_pipe(384), 385u);
}

} // namespace

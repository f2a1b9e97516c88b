// What a kernel would not write, in a written /proc.
#include <zorv/ps.h>

#include <filesystem>

#include <sys/stat.h>

#include "ps_list.h"

namespace {

using Ps = Device;

TEST_F(Ps, CommandLinesLoseTheirNulsAndTheLastByte)
{
    file("/proc/7/stat", "7 (a) S 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 4096 1 0\n");
    std::filesystem::create_directories("/proc/7/fd");
    const std::pair<std::string, std::string> rows[] = {
        {std::string("sh\0-c\0\0x y\0", 11), "sh -c  x y"},
        {"title", "titl"}, // a process that wrote over its own
        {std::string(1, '\0'), ""},
        {std::string(1024, 'x'), std::string(1023, 'x')},
        {std::string(1025, 'x'), std::string(1023, 'x')},
    };
    for (const auto &[bytes, cmdline] : rows) {
        SCOPED_TRACE(bytes);
        file("/proc/7/cmdline", bytes);
        const List list(zorv_ps());
        ASSERT_EQ(list->count, 1);
        EXPECT_EQ(list->first->cmdline, cmdline);
    }
    file("/proc/7/cmdline", ""); // a kernel thread
    EXPECT_EQ(List(zorv_ps())->first->cmdline, nullptr);
    EXPECT_THAT(logged(), IsEmpty());

    remove("/proc/7/cmdline");
    EXPECT_EQ(List(zorv_ps())->first->cmdline, nullptr);
    std::filesystem::create_directories("/proc/7/cmdline");
    EXPECT_EQ(List(zorv_ps())->first->cmdline, nullptr);
    EXPECT_THAT(logged(), ElementsAre("[error] libzorv_proc.fread_cmdline(): Failed to open "
                                      "'/proc/7/cmdline': No such file or directory",
                                      "[error] libzorv_proc.fread_cmdline(): Failed to read "
                                      "'/proc/7/cmdline'"));
}

TEST_F(Ps, TakesProcessesInTheKernelsFormOnly)
{
    const std::string good = "9 (a) S 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 4096 1 0";
    const struct {
        const char *folder;
        std::string stat;
        std::vector<int> pids;
    } rows[] = {
        {"9", good, {9}},
        {"9x", good, {}}, // taken for 9, whose stat is not there
        {"-9", good, {-9}},
        {"0", good, {}},
        {"self", good, {}},
        {"9", "", {}},
        {"9", good + "\n(((", {9}}, // the first line counts
        {"9", "\n" + good, {}},
        {"9", "9 a) S 1", {}},
        {"9", "9 (a S 1", {}},
        {"9", "9 )a( S 1", {}},
        {"9", "9 (a) ", {}},
        {"9", "9 (a) S 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 4096 ", {}},
        {"9", good.substr(0, 3) + std::string(1100, 'x') + good.substr(3), {}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.stat);
        const std::string folder = std::string("/proc/") + row.folder;
        file(folder + "/stat", row.stat);
        file("/proc/8", good); // no folder
        const List list(zorv_ps());
        ASSERT_NE(list, nullptr);
        EXPECT_EQ(pids(list), row.pids);
        remove(folder);
    }
    chmod("/proc", 0);
    unprivileged();
    logged();
    EXPECT_EQ(zorv_ps(), nullptr);
    EXPECT_THAT(logged(), ElementsAre("[error] libzorv_proc.zorv_ps_filter(): Failed to open "
                                      "'/proc': Permission denied"));
    EXPECT_EQ(dumped(Json(zorv_ps_list_to_array(nullptr)).get()), "[]");
    EXPECT_EQ(dumped(Json(zorv_fds_to_array(nullptr)).get()), "[]");
    zorv_ps_list_free(nullptr);
}

// The socket descriptors of a written process, which has those inodes open.
std::string written(const std::vector<std::string> &inodes)
{
    Device::file("/proc/7/stat",
                 "7 (a) S 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 4096 1 0\n");
    Device::file("/proc/7/cmdline", "");
    std::filesystem::remove_all("/proc/7/fd");
    std::filesystem::create_directories("/proc/7/fd");
    const List list([&] {
        for (size_t i = 0; i < inodes.size(); ++i)
            std::filesystem::create_symlink("socket:[" + inodes[i] + "]",
                                            "/proc/7/fd/" + std::to_string(i));
        return zorv_ps_filter(1, nullptr, nullptr);
    }());
    EXPECT_EQ(list->first->fd_count, static_cast<int>(inodes.size()));
    return dumped(Json(zorv_fds_to_array(list->first)).get());
}

TEST_F(Ps, WrittenTablesHaveEveryState)
{
    const char *const names[] = {
        "UNKNOWN", "ESTABLISHED", "SYN_SENT", "SYN_RECV", "FIN_WAIT1", "FIN_WAIT2",    "TIME_WAIT",
        "CLOSE",   "CLOSE_WAIT",  "LAST_ACK", "LISTEN",   "CLOSING",   "NEW_SYN_RECV", "UNKNOWN"};
    for (unsigned state = 0; state < std::size(names); ++state) {
        char line[200];
        snprintf(line, sizeof line,
                 "   0: 0100007F:0050 00000000:0000 %02X 00000000:00000000 00:00000000 00000000 "
                 "    0        0 99 1 0000000000000000 100 0 0 10 0\n",
                 state);
        for (const char *kind : {"tcp", "udp"}) {
            remove("/proc/net");
            file(std::string("/proc/net/") + kind, std::string("  sl  local\n") + line);
            const bool unknown = kind[0] == 'u' && state != 1 && state != 7;
            EXPECT_EQ(written({"99"}),
                      "[" + inet(kind, "80", "\"*\"", unknown ? "UNKNOWN" : names[state]) + "]");
        }
    }

    constexpr struct {
        const char *type, *flags, *state, *shown_type, *shown_state;
    } kUnix[] = {
        {"0003", "00010000", "00", "RAW", "UNKNOWN"}, // free
        {"0004", "00000000", "02", "RDM", "CONNECTING"},
        {"0005", "00010000", "03", "SEQPACKET", "CONNECTED"},
        {"0006", "00000000", "04", "UNKNOWN", "DISCONNECTING"},
        {"0000", "00000000", "05", "UNKNOWN", "UNKNOWN"},
    };
    remove("/proc/net");
    for (const auto &row : kUnix) {
        file("/proc/net/unix", std::string("0000000000000000: 00000002 00000000 ") + row.flags +
                                   " " + row.type + " " + row.state + " 99\n");
        const std::string shown = written({"99"});
        EXPECT_THAT(shown, testing::HasSubstr(std::string("\"type\":\"") + row.shown_type));
        EXPECT_THAT(shown, testing::HasSubstr(std::string("\"state\":\"") + row.shown_state));
    }
}

TEST_F(Ps, FirstSocketOfAnInodeStays)
{
    libzorv_log_level = 8;
    for (const char *kind : {"tcp6", "udp", "udp6"})
        file(std::string("/proc/net/") + kind, "");
    file("/proc/net/unix", "0000000000000000: 00000002 00000000 00000000 0001 03 41\n");
    file("/proc/net/tcp", "0: 0:1 0:2 1 0:0 0:0 0 0 0 41\n"
                          "1: 0:3 0:4 1 0:0 0:0 0 0 0 42\n"
                          "2: 0:5 0:6 1 0:0 0:0 0 0 0 42\n"
                          "3: 0:7 0:8 1 0:0 0:0 0 0 0\n");
    // A number past 32 bits is cut to them, and names the same socket.
    EXPECT_EQ(written({"42", "43", "4294967338"}), "[" + inet("tcp", "3", "4", "ESTABLISHED") +
                                                       ",{\"fd_type\":\"socket\"}," +
                                                       inet("tcp", "3", "4", "ESTABLISHED") + "]");
    EXPECT_THAT(logged(),
                ElementsAre("[debug] libzorv_proc.add_socket(): Duplicate socket inode 41",
                            "[debug] libzorv_proc.add_socket(): Duplicate socket inode 42"));
    remove("/proc/net/udp");
    written({});
    EXPECT_THAT(logged(), testing::Contains("[error] libzorv_proc.parse_sockets(): Failed to open "
                                            "'/proc/net/udp': No such file or directory"));
}

TEST_F(Ps, DescriptorsThatMayNotBeReadCountAsMinusOne)
{
    written({"1", "2"});
    EXPECT_EQ(List(zorv_ps())->first->fd_count, 2);
    EXPECT_EQ(List(zorv_ps())->first->fds.first, nullptr); // counted, not resolved
    chmod("/proc/7/fd", 0);
    unprivileged();
    logged();
    const Json array(zorv_ps_list_to_array(zorv_ps()));
    EXPECT_EQ(dumped(array.get()), R"([{"pid":7,"ppid":1,"vsz":4,"rss":4,"stat":"S","fd_count":-1,)"
                                   R"("comm":"a","fds":[]}])");
    EXPECT_THAT(logged(), ElementsAre("[error] libzorv_proc.walk_process_fds(): Failed to open "
                                      "'/proc/7/fd': Permission denied"));
}

} // namespace

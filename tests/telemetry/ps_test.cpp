// What a kernel would and would not write, in a written /proc.

#include "support/device.h"
#include "support/json.h"

using namespace std::string_literals;

namespace {

using Ps = Device;

using List =
    std::unique_ptr<zorv_ps_list, decltype([](zorv_ps_list *list) { zorv_ps_list_free(list); })>;

const std::string kStat = "7 (a) S 3 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 8192 3 0";

// Each process as "[pid comm cmdline]", from the head of the list.
std::string shown(const List &list)
{
    std::string text;
    const zorv_ps_record *record;
    for (zorv_ps_each(record, list.get()))
        text += "[" + std::to_string(record->pid) + " " + record->comm + " " +
                (record->cmdline ? record->cmdline : "NULL") + "]";
    return text;
}

// The values of a document, without their names.
std::string values(const json_t *json)
{
    return std::regex_replace(dumped(json), std::regex(R"("[a-z_]+":|[{}"])"), "");
}

// A written process with a descriptor of that link: its values.
std::string written(const std::string &link)
{
    Device::file("/proc/7/stat", kStat);
    Device::file("/proc/7/cmdline", "");
    Device::remove("/proc/7/fd");
    std::filesystem::create_directories("/proc/7/fd");
    std::filesystem::create_symlink(link, "/proc/7/fd/3");
    return values(Json(zorv_ps_list_to_array(zorv_ps_filter(1, nullptr, nullptr))).get());
}

TEST_F(Ps, TakesProcessesInTheKernelsFormOnly)
{
    const std::tuple<const char *, std::string, std::string, std::string> rows[] = {
        {"7", kStat, "sh\0-c\0\0x y\0"s, "[7 a sh -c  x y]"},
        {"7", kStat, "title", "[7 a titl]"}, // a process that wrote over its own
        {"7", kStat, std::string(1025, 'x'), "[7 a " + std::string(1023, 'x') + "]"},
        {"-7", kStat, "", "[-7 a NULL]"},
        {"7", kStat + "\n(((", "", "[7 a NULL]"}, // the first line counts
        {"7", "7 () S" + kStat.substr(7), "", "[7  NULL]"},
        {"7", "7 () R 1 () S" + kStat.substr(7), "", "[7 ) R 1 ( NULL]"},
        {"7", "7 a) S 1", "", ""},
        {"7", "7 (a) ", "", ""},
        {"7", kStat.substr(0, kStat.size() - 3), "", ""},
        {"7", "7 (a" + std::string(1100, 'x') + kStat.substr(4), "", ""},
    };
    for (const auto &[name, stat, cmdline, want] : rows) {
        const std::string folder = "/proc/"s + name;
        file(folder + "/stat", stat);
        file(folder + "/cmdline", cmdline);
        std::filesystem::create_directories(folder + "/fd");
        file("/proc/8", kStat); // no folder
        EXPECT_EQ(shown(List(zorv_ps())), want) << stat << cmdline;
        remove(folder);
    }
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Ps, WhatCannotBeReadIsLeftOut)
{
    EXPECT_EQ(written("/\xff"), "[7,3,8,12,S,1,a,[file,/\xef\xbf\xbd]]");
    file("/proc/7/fd/4", "no link: it is counted alone");
    EXPECT_EQ(List(zorv_ps())->first->fd_count, 2);
    EXPECT_EQ(List(zorv_ps())->first->fds.first, nullptr); // counted, not resolved
    logged();
    remove("/proc/7/cmdline");
    EXPECT_EQ(shown(List(zorv_ps())), "[7 a NULL]");
    chmod("/proc/7/fd", 0);
    unprivileged();
    EXPECT_EQ(
        dumped(Json(zorv_ps_list_to_array(zorv_ps())).get()),
        R"([{"pid":7,"ppid":3,"vsz":8,"rss":12,"stat":"S","fd_count":-1,"comm":"a","fds":[]}])");
    chmod("/proc", 0);
    EXPECT_EQ(zorv_ps(), nullptr);
    EXPECT_THAT(logged(), testing::Each(testing::MatchesRegex(
                              R"(\[error\] libzorv_proc\.\w+\(\): Failed to open '/proc.*': .+)")));
    EXPECT_EQ(dumped(Json(zorv_ps_list_to_array(nullptr)).get()), "[]");
    zorv_ps_list_free(nullptr);
}

TEST_F(Ps, LinksAndTablesTellWhatADescriptorIs)
{
    libzorv_log_level = 8;
    const std::string longest(385, 'f');
    std::map<std::string, std::string> rows = {
        {"/tmp/gone (deleted)", "file,/tmp/gone (deleted)"},
        {longest, "file," + longest},
        {longest + "g", "[error] libzorv_proc.resolve_fd_path(): Resolved path truncated "
                        "'/proc/7/fd/3 ->  " +
                            longest + "g'"},
        {"anon_inode:[eventfd]", "anon,anon_inode:[eventfd]"},
        {"pipe:]5[", "file,pipe:]5["},
        {"/a:[b]", "[warn ] libzorv_proc.walk_process_fds(): Unknown FD type '/a:[b]'"},
        {"socket:[41]", "socket,unix,2,STREAM,CONNECTED"}, // not the later TCP socket
        {"socket:[51]", "socket,unix,2,RAW,UNKNOWN"},      // free
        {"socket:[52]", "socket,unix,18,RDM,CONNECTING"},
        {"socket:[55]", "socket,unix,2,STREAM,UNCONNECTED"},
        {"socket:[53]", "socket,unix,2,SEQPACKET,/a,CONNECTED"},
        {"socket:[54]", "socket,unix,2,UNKNOWN,DISCONNECTING"},
        {"socket:[42]", "socket,tcp,3,4,ESTABLISHED"},         // the first of two
        {"socket:[4294967338]", "socket,tcp,3,4,ESTABLISHED"}, // is cut to 32 bits, and the same
        {"socket:[43]", "socket"},                             // its line ends before the inode
    };
    std::string tcp = "0: 0:1 0:2 1 0:0 0:0 0 0 0 41\n1: 0:3 0:4 1 0:0 0:0 0 0 0 42\n"
                      "2: 0:5 0:6 1 0:0 0:0 0 0 0 42\n3: 0:7 0:8 1 0:0 0:0 0 0 0\n",
                udp = "  sl  local\n";
    int state = 0;
    for (const std::string name :
         {"UNKNOWN", "ESTABLISHED", "SYN_SENT", "SYN_RECV", "FIN_WAIT1", "FIN_WAIT2", "TIME_WAIT",
          "CLOSE", "CLOSE_WAIT", "LAST_ACK", "LISTEN", "CLOSING", "NEW_SYN_RECV", "UNKNOWN"}) {
        const std::string line = "0: 0:50 0:0 "s + "0123456789ABCD"[state] + " 0:0 0:0 0 0 0 ";
        tcp += line + std::to_string(60 + state) + "\n";
        udp += line + std::to_string(80 + state) + "\n";
        rows["socket:[" + std::to_string(60 + state) + "]"] = "socket,tcp,80,*," + name;
        rows["socket:[" + std::to_string(80 + state) + "]"] =
            "socket,udp,80,*," + (state == 1 || state == 7 ? name : "UNKNOWN");
        ++state;
    }
    file("/proc/net/tcp", tcp);
    file("/proc/net/udp", udp);
    file("/proc/net/tcp6", "");
    file("/proc/net/unix", "0: 00000002 00000000 00000000 0001 03 41\n"
                           "0: 00000002 00000000 00010000 0003 00 51\n"
                           "0: 00000012 00000000 00000000 0004 02 52\n"
                           "0: 00000002 00000000 00010000 0005 03 53 /a b\n"
                           "0: 00000002 00000000 00000000 0001 01 55\n"
                           "0: 00000002 00000000 00000000 0006 04 54\n");
    for (const auto &[link, want] : rows) {
        const bool is_refused = want[0] == '['; // which the log tells
        EXPECT_EQ(written(link), "[7,3,8,12,S,1,a,[" + (is_refused ? "" : want) + "]]") << link;
        const auto lines = logged();
        EXPECT_EQ(lines[1], "[debug] libzorv_proc.add_socket(): Duplicate socket inode 42");
        EXPECT_EQ(lines[2], "[error] libzorv_proc.parse_sockets(): Failed to open "
                            "'/proc/net/udp6': No such file or directory");
        EXPECT_EQ(lines.size() == 4 ? lines[3] : "", is_refused ? want : "");
    }
}

TEST_F(Ps, FilterLeavesOutWhatItAnswersOneFor)
{
    for (const std::string pid : {"63", "64", "65", "66"}) {
        file("/proc/" + pid + "/stat", pid + kStat.substr(1));
        file("/proc/" + pid + "/cmdline", "");
        std::filesystem::create_directory("/proc/" + pid + "/fd");
        std::filesystem::create_symlink("/a", "/proc/" + pid + "/fd/0");
    }
    const auto filter = [](zorv_ps_record *record, void *arg) {
        EXPECT_NE(record->fds.first, nullptr); // complete already
        return record->pid == *static_cast<const int *>(arg) ? 1 : record->pid % 2 ? -1 : 2;
    };
    int left_out = 64;
    const List list(zorv_ps_filter(1, filter, &left_out));
    EXPECT_THAT(shown(list), testing::Not(HasSubstr("[64 ")));
    EXPECT_EQ(list->count, 3);
    EXPECT_EQ(list->last->prev->prev, list->first); // of a ring, both ways
    EXPECT_EQ(static_cast<void *>(list->first->prev), list.get());
    EXPECT_EQ(static_cast<void *>(list->last->next), list.get());
}

} // namespace

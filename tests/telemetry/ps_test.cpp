// What a kernel would not write, in a written /proc; and real processes under the kernel's own.
#include <zorv/ps.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <functional>
#include <memory>
#include <regex>

#include <netinet/in.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/device.h"
#include "support/enter.h"
#include "support/json.h"

using namespace std::string_literals;

namespace {

using Ps = Device;

struct FreeList {
    void operator()(zorv_ps_list *list) const { zorv_ps_list_free(list); }
};
using List = std::unique_ptr<zorv_ps_list, FreeList>;

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

// A process that has done its work and then stops, until the device ends.
pid_t stopped(const std::function<void()> &work)
{
    const auto pid = static_cast<pid_t>(check(fork(), "fork"));
    if (pid == 0) {
        work(); // what it throws ends it
        raise(SIGSTOP);
    }
    int status = 0;
    waitpid(pid, &status, WUNTRACED);
    EXPECT_TRUE(WIFSTOPPED(status)) << "its work failed: " << status;
    return pid;
}

// A socket that is bound to a port of all addresses.
int bound(int family, int type, int port)
{
    const auto fd = static_cast<int>(check(socket(family, type, 0), "socket"));
    sockaddr_in6 address = {}; // one of IPv4 begins alike
    address.sin6_family = static_cast<sa_family_t>(family);
    address.sin6_port = htons(static_cast<uint16_t>(port));
    const socklen_t size = family == AF_INET ? sizeof(sockaddr_in) : sizeof address;
    check(bind(fd, reinterpret_cast<const sockaddr *>(&address), size), "bind");
    return fd;
}

TEST_F(Ps, TakesProcessesInTheKernelsFormOnly)
{
    const struct {
        const char *folder;
        std::string stat, cmdline, want;
    } rows[] = {
        {"7", kStat, "sh\0-c\0\0x y\0"s, "[7 a sh -c  x y]"},
        {"7", kStat, "title", "[7 a titl]"}, // a process that wrote over its own
        {"7", kStat, "\0"s, "[7 a ]"},
        {"7", kStat, std::string(1025, 'x'), "[7 a " + std::string(1023, 'x') + "]"},
        {"7x", kStat, "", ""}, // taken for 7, whose stat is not there
        {"-7", kStat, "", "[-7 a NULL]"},
        {"self", kStat, "", ""},
        {"7", "", "", ""},
        {"7", kStat + "\n(((", "", "[7 a NULL]"}, // the first line counts
        {"7", "7 () S" + kStat.substr(7), "", "[7  NULL]"},
        {"7", "7 a) S 1", "", ""},
        {"7", "7 (a S 1", "", ""},
        {"7", "7 )a( S 1", "", ""},
        {"7", "7 (a) ", "", ""},
        {"7", kStat.substr(0, kStat.size() - 3), "", ""},
        {"7", "7 (a" + std::string(1100, 'x') + kStat.substr(4), "", ""},
    };
    for (const auto &row : rows) {
        const std::string folder = "/proc/"s + row.folder;
        file(folder + "/stat", row.stat);
        file(folder + "/cmdline", row.cmdline);
        std::filesystem::create_directories(folder + "/fd");
        file("/proc/8", kStat); // no folder
        EXPECT_EQ(shown(List(zorv_ps())), row.want) << row.stat << row.cmdline;
        remove(folder);
    }
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Ps, WhatCannotBeReadIsLeftOut)
{
    EXPECT_EQ(written("/a"), "[7,3,8,12,S,1,a,[file,/a]]");
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
    EXPECT_EQ(dumped(Json(zorv_fds_to_array(nullptr)).get()), "[]");
    zorv_ps_list_free(nullptr);
}

TEST_F(Ps, LinksAndTablesTellWhatADescriptorIs)
{
    libzorv_log_level = 8;
    const std::string longest(385, 'f'), unknown = "[warn ] libzorv_proc.walk_process_fds(): "
                                                   "Unknown FD type ";
    struct Row {
        std::string link, want, line = "";
    };
    std::vector<Row> rows = {
        {"/tmp/gone (deleted)", "file,/tmp/gone (deleted)"},
        {longest, "file," + longest},
        {longest + "g", "",
         "[error] libzorv_proc.resolve_fd_path(): Resolved path truncated '/proc/7/fd/3 ->  " +
             longest + "g'"},
        {"/tmp/\xff", "file"}, // not UTF-8
        {"anon_inode:[eventfd]", "anon,anon_inode:[eventfd]"},
        {"anon_inode:inotify", "file,anon_inode:inotify"},
        {"pipe:[5]", "pipe,pipe:[5]"},
        {"pipe:]5[", "file,pipe:]5["},
        {"/tmp/a:[b]", "", unknown + "'/tmp/a:[b]'"},
        {"socket:[41]", "socket,unix,2,STREAM,CONNECTED"}, // not the later TCP socket
        {"socket:[51]", "socket,unix,2,RAW,UNKNOWN"},      // free
        {"socket:[52]", "socket,unix,18,RDM,CONNECTING"},
        {"socket:[53]", "socket,unix,2,SEQPACKET,/a,CONNECTED"},
        {"socket:[54]", "socket,unix,2,UNKNOWN,DISCONNECTING"},
        {"socket:[55]", "socket,unix,2,UNKNOWN,UNKNOWN"},
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
        rows.push_back({"socket:[" + std::to_string(60 + state) + "]", "socket,tcp,80,*," + name});
        rows.push_back({"socket:[" + std::to_string(80 + state) + "]",
                        "socket,udp,80,*," + (state == 1 || state == 7 ? name : "UNKNOWN")});
        ++state;
    }
    file("/proc/net/tcp", tcp);
    file("/proc/net/udp", udp);
    file("/proc/net/tcp6", "");
    file("/proc/net/unix", "0: 00000002 00000000 00000000 0001 03 41\n"
                           "0: 00000002 00000000 00010000 0003 00 51\n"
                           "0: 00000012 00000000 00000000 0004 02 52\n"
                           "0: 00000002 00000000 00010000 0005 03 53 /a b\n"
                           "0: 00000002 00000000 00000000 0006 04 54\n"
                           "0: 00000002 00000000 00000000 0000 05 55\n");
    for (const auto &[link, want, line] : rows) {
        EXPECT_EQ(written(link), "[7,3,8,12,S,1,a,[" + want + "]]") << link;
        auto lines = logged();
        lines.resize(4); // with "" for none
        EXPECT_THAT(lines,
                    ElementsAre("[debug] libzorv_proc.add_socket(): Duplicate socket inode 41",
                                "[debug] libzorv_proc.add_socket(): Duplicate socket inode 42",
                                "[error] libzorv_proc.parse_sockets(): Failed to open "
                                "'/proc/net/udp6': No such file or directory",
                                line));
    }
}

TEST_F(Ps, RecordsOfTheCallersMakingMayHoldAnyKind)
{
    char link[] = "/a";
    zorv_inet_socket data = {0, 65535, 13};
    zorv_unix_socket local = {2, 1, 3, link};
    const zorv_socket_record tcp = {1, ZORV_SOCKET_TCP, {&data}, {}}, odd = {1, 6, {nullptr}, {}},
                             unix_one = {1, ZORV_SOCKET_UNIX, {.local = &local}, {}};
    zorv_fd_record fds[] = {
        {nullptr, fds + 1, 5, {link}},
        {nullptr, fds + 2, ZORV_FD_PIPE, {nullptr}},
        {nullptr, fds + 3, ZORV_FD_SOCKET, {.socket = &tcp}},
        {nullptr, fds + 4, ZORV_FD_SOCKET, {.socket = &odd}},
        {nullptr, nullptr, ZORV_FD_SOCKET, {.socket = &unix_one}},
    };
    zorv_ps_record record = {};
    record.fds = {fds, fds + 4};
    EXPECT_EQ(dumped(Json(zorv_fds_to_array(&record)).get()),
              R"([{"fd_type":"unknown"},{"fd_type":"pipe"},)"
              R"({"fd_type":"socket","socket_type":"tcp",)"
              R"("socket":{"local_port":"*","remote_port":65535,"state":"UNKNOWN"}},)"
              R"({"fd_type":"socket","socket_type":"unknown","socket":{}},)"
              R"({"fd_type":"socket","socket_type":"unix",)"
              R"("socket":{"refcnt":2,"type":"STREAM","path":"/a","state":"LISTENING"}}])");
}

TEST_F(Ps, DescriptorsOfARealProcess)
{
    kernel_proc();
    const pid_t child = stopped([] {
        close_range(0, ~0U, 0);
        check(listen(bound(AF_INET, SOCK_STREAM, 1000), 1), "listen");
        bound(AF_INET6, SOCK_STREAM, 1001); // in no table
        bound(AF_INET6, SOCK_DGRAM, 1002);
        const auto path = static_cast<int>(check(socket(AF_UNIX, SOCK_STREAM, 0), "socket"));
        const sockaddr_un address = {AF_UNIX, "/tmp/my socket"};
        check(bind(path, reinterpret_cast<const sockaddr *>(&address), sizeof address), "bind");
        check(listen(path, 1), "listen");
        check(eventfd(0, EFD_CLOEXEC), "eventfd");
        for (int n = 0; n < 500; ++n) // more than the kernel hands out at a time
            check(socket(AF_UNIX, SOCK_DGRAM, 0), "socket");
    });
    const List counted(zorv_ps()), list(zorv_ps_filter(1, nullptr, nullptr));
    std::string found = values(Json(zorv_fds_to_array(list->last)).get()), rest;
    for (int n = 0; n < 500; ++n)
        rest += ",socket,unix,2,DGRAM,UNCONNECTED";
    EXPECT_EQ(found, "[socket,tcp,1000,*,LISTEN,socket,socket,udp6,1002,*,CLOSE,"
                     "socket,unix,2,STREAM,/tmp/my,LISTENING,anon,anon_inode:[eventfd]" +
                         rest + "]");
    for (const List *each : {&counted, &list}) {
        EXPECT_EQ((*each)->last->pid, child);
        EXPECT_EQ((*each)->last->fd_count, 505);
    }
    EXPECT_EQ(counted->last->fds.first, nullptr);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Ps, NamesOfAllBytesAreKeptWhole)
{
    kernel_proc();
    std::vector<std::string> names = {") R 1 (", "((", "))", " a b ", "", "a\\b"};
    for (int byte = 1; byte < 256; byte += 15) {
        names.emplace_back();
        for (int c = byte; c < byte + 15 && c < 256; c++)
            names.back() += c == '\n' ? ' ' : static_cast<char>(c);
    }
    for (const std::string &name : names) {
        const pid_t child = stopped([&name] { prctl(PR_SET_NAME, name.c_str()); });
        List list(zorv_ps());
        std::ostringstream text;
        text << list->last->pid << list->last->comm << list->last->ppid << list->last->state;
        EXPECT_EQ(text.str(), std::to_string(child) + name + std::to_string(getpid()) + "T");
    }
    // A newline ends the line that is read, and the name is never closed.
    const pid_t hidden = stopped([] { prctl(PR_SET_NAME, "a\nb"); });
    EXPECT_NE(List(zorv_ps())->last->pid, hidden);
}

TEST_F(Ps, FilterLeavesOutWhatItAnswersOneFor)
{
    kernel_proc();
    const int a = stopped([] {}), b = stopped([] {}), c = stopped([] {});
    const auto filter = [](zorv_ps_record *record, void *arg) {
        EXPECT_NE(record->fds.first, nullptr); // complete already
        return record->pid == *static_cast<const int *>(arg) ? 1 : record->pid % 2 ? -1 : 2;
    };
    int left_out = b;
    const List list(zorv_ps_filter(1, filter, &left_out));
    std::vector<int> pids;
    const zorv_ps_record *record;
    for (zorv_ps_each(record, list.get()))
        pids.push_back(record->pid);
    EXPECT_THAT(pids, ElementsAre(1, getpid(), a, c));
    EXPECT_EQ(list->count, 4);
    EXPECT_EQ(list->last->pid, c); // a ring, both ways
    EXPECT_EQ(list->last->prev->prev->prev, list->first);
    EXPECT_EQ(static_cast<void *>(list->first->prev), list.get());
    EXPECT_EQ(static_cast<void *>(list->last->next), list.get());
}

TEST_F(Ps, ProcessesThatComeAndGoDoNoHarm)
{
    kernel_proc();
    libzorv_log_level = 0;
    must_run("(while :; do sleep 0.008 & sleep 0.005; done) >/dev/null 2>&1 &");
    const int before = open_descriptors();
    for (int round = 0; round < 60; ++round) {
        const Json array(zorv_ps_list_to_array(zorv_ps_filter(1, nullptr, nullptr)));
        size_t index;
        json_t *process;
        ASSERT_GE(json_array_size(array.get()), 2u);
        json_array_foreach(array.get(), index, process) ASSERT_EQ(json_object_size(process), 8u);
    }
    EXPECT_EQ(open_descriptors(), before);
}

} // namespace

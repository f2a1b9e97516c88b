// What a kernel would not write, in a written /proc; and real processes under the kernel's own.
#include <zorv/ps.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <functional>
#include <memory>
#include <regex>

#include <arpa/inet.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/socket.h>
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

// A process that has done its work and then stops until the test ends.
class Child {
public:
    explicit Child(const std::function<void()> &work)
        : pid_(static_cast<pid_t>(check(fork(), "fork")))
    {
        int status = 0;
        if (pid_ == 0) {
            work(); // what it throws ends it
            raise(SIGSTOP);
        }
        waitpid(pid_, &status, WUNTRACED);
        EXPECT_TRUE(WIFSTOPPED(status)) << "the child's work failed: " << status;
    }
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;
    ~Child()
    {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    int pid() const { return pid_; }

private:
    pid_t pid_;
};

// The descriptors of a child that has none but those it opens: the values of each.
std::vector<std::string> descriptors(const std::function<void()> &open_them)
{
    const Child child([&] {
        close_range(0, ~0U, 0);
        open_them();
    });
    const List counted(zorv_ps()), list(zorv_ps_filter(1, nullptr, nullptr));
    const Json array(zorv_fds_to_array(list->last));
    std::vector<std::string> found;
    size_t index;
    json_t *fd;
    json_array_foreach(array.get(), index, fd) found.push_back(values(fd));
    EXPECT_EQ(counted->last->pid, child.pid());
    EXPECT_EQ(counted->last->fds.first, nullptr);
    EXPECT_EQ(counted->last->fd_count, list->last->fd_count);
    EXPECT_EQ(list->last->fd_count, static_cast<int>(found.size()));
    return found;
}

// A socket that is bound to a port of loopback, and connected to another one if there is one.
int make_socket(int family, int type, int port, int remote = 0)
{
    const auto fd = static_cast<int>(check(socket(family, type, 0), "socket"));
    for (const int each : {port, remote}) {
        // An IPv4 address lies where the flow of an IPv6 one is.
        const sockaddr_in6 address = {static_cast<sa_family_t>(family),
                                      htons(static_cast<uint16_t>(each)), htonl(INADDR_LOOPBACK),
                                      in6addr_loopback, 0};
        const auto any = reinterpret_cast<const sockaddr *>(&address);
        const socklen_t size = family == AF_INET ? sizeof(sockaddr_in) : sizeof address;
        if (each != 0)
            check(each == port ? bind(fd, any, size) : connect(fd, any, size), "port");
    }
    return fd;
}

TEST_F(Ps, TakesProcessesInTheKernelsFormOnly)
{
    const std::string bare = "7 (a) S 3 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 8192 ";
    const struct {
        const char *folder;
        std::string stat, cmdline;
        std::string want;
    } rows[] = {
        {"7", kStat, "sh\0-c\0\0x y\0"s, "[7 a sh -c  x y]"},
        {"7", kStat, "title", "[7 a titl]"}, // a process that wrote over its own
        {"7", kStat, "\0"s, "[7 a ]"},
        {"7", kStat, std::string(1024, 'x'), "[7 a " + std::string(1023, 'x') + "]"},
        {"7", kStat, std::string(1025, 'x'), "[7 a " + std::string(1023, 'x') + "]"},
        {"7", kStat, "", "[7 a NULL]"}, // a kernel thread
        {"7x", kStat, "", ""},          // taken for 7, whose stat is not there
        {"-7", kStat, "", "[-7 a NULL]"},
        {"0", kStat, "", ""},
        {"self", kStat, "", ""},
        {"7", "", "", ""},
        {"7", kStat + "\n(((", "", "[7 a NULL]"}, // the first line counts
        {"7", "\n" + kStat, "", ""},
        {"7", "7 () S" + kStat.substr(7), "", "[7  NULL]"},
        {"7", "7 a) S 1", "", ""},
        {"7", "7 (a S 1", "", ""},
        {"7", "7 )a( S 1", "", ""},
        {"7", "7 (a) ", "", ""},
        {"7", bare, "", ""},
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
    EXPECT_THAT(logged(),
                testing::Each(testing::MatchesRegex(
                    R"(\[error\] libzorv_proc\.[a-z_]+\(\): Failed to open '/proc.*': .+)")));
    EXPECT_EQ(dumped(Json(zorv_ps_list_to_array(nullptr)).get()), "[]");
    EXPECT_EQ(dumped(Json(zorv_fds_to_array(nullptr)).get()), "[]");
    zorv_ps_list_free(nullptr);
}

TEST_F(Ps, LinksTellWhatADescriptorIs)
{
    for (const char *kind : {"unix", "tcp", "tcp6", "udp", "udp6"})
        file("/proc/net/"s + kind, "");
    const std::string longest(385, 'f');
    const struct {
        std::string link, want, line;
    } rows[] = {
        {"/tmp/gone (deleted)", "file,/tmp/gone (deleted)", ""},
        {longest, "file," + longest, ""},
        {longest + "g", "",
         "[error] libzorv_proc.resolve_fd_path(): Resolved path truncated '/proc/7/fd/3 ->  " +
             longest + "g'"},
        {"/tmp/\xff", "file", ""}, // not UTF-8
        {"anon_inode:[eventfd]", "anon,anon_inode:[eventfd]", ""},
        {"anon_inode:inotify", "file,anon_inode:inotify", ""},
        {"pipe:[5]", "pipe,pipe:[5]", ""},
        {"pipe:]5[", "file,pipe:]5[", ""},
        {"socket:[5]", "socket", ""},
        {"/tmp/a:[b]", "", "[warn ] libzorv_proc.walk_process_fds(): Unknown FD type '/tmp/a:[b]'"},
        {"net:[5]", "", "[warn ] libzorv_proc.walk_process_fds(): Unknown FD type 'net:[5]'"},
    };
    for (const auto &[link, want, line] : rows) {
        EXPECT_EQ(written(link), "[7,3,8,12,S,1,a,[" + want + "]]") << link;
        std::string lines;
        for (const std::string &each : logged())
            lines += each;
        EXPECT_EQ(lines, line);
    }
}

TEST_F(Ps, TablesNameSockets)
{
    libzorv_log_level = 8;
    const char *const names[] = {
        "UNKNOWN", "ESTABLISHED", "SYN_SENT", "SYN_RECV", "FIN_WAIT1", "FIN_WAIT2",    "TIME_WAIT",
        "CLOSE",   "CLOSE_WAIT",  "LAST_ACK", "LISTEN",   "CLOSING",   "NEW_SYN_RECV", "UNKNOWN"};
    std::vector<std::pair<std::string, std::string>> rows = {
        {"41", "unix,2,STREAM,CONNECTED"}, // not the later TCP socket
        {"51", "unix,2,RAW,UNKNOWN"},      // free
        {"52", "unix,18,RDM,CONNECTING"},
        {"53", "unix,2,SEQPACKET,/a,CONNECTED"},
        {"54", "unix,2,UNKNOWN,DISCONNECTING"},
        {"55", "unix,2,UNKNOWN,UNKNOWN"},
        {"42", "tcp,3,4,ESTABLISHED"},         // the first of two
        {"4294967338", "tcp,3,4,ESTABLISHED"}, // is cut to 32 bits, and the same
        {"43", ""},                            // its line ends before the inode
        {"44", ""},
    };
    const auto line = [](const std::string &state, const std::string &inode) {
        return "   0: 0100007F:0050 00000000:0000 " + state +
               " 00000000:00000000 00:00000000 00000000     0        0 " + inode +
               " 1 0000000000000000 100 0 0 10 0\n";
    };
    std::string tcp = "0: 0:1 0:2 1 0:0 0:0 0 0 0 41\n"
                      "1: 0:3 0:4 1 0:0 0:0 0 0 0 42\n"
                      "2: 0:5 0:6 1 0:0 0:0 0 0 0 42\n"
                      "3: 0:7 0:8 1 0:0 0:0 0 0 0\n",
                udp = "  sl  local\n";
    for (size_t state = 0; state < std::size(names); ++state) {
        const std::string digit = "0123456789ABCD"s.substr(state, 1), name = names[state];
        const std::string inode = std::to_string(state + 60), other = std::to_string(state + 80);
        tcp += line("0" + digit, inode);
        udp += line("0" + digit, other);
        rows.emplace_back(inode, "tcp,80,*," + name);
        rows.emplace_back(other, "udp,80,*," + (state == 1 || state == 7 ? name : "UNKNOWN"));
    }
    file("/proc/net/tcp", tcp);
    file("/proc/net/udp", udp);
    file("/proc/net/tcp6", "");
    file("/proc/net/unix", "0000000000000000: 00000002 00000000 00000000 0001 03 41\n"
                           "0000000000000000: 00000002 00000000 00010000 0003 00 51\n"
                           "0000000000000000: 00000012 00000000 00000000 0004 02 52\n"
                           "0000000000000000: 00000002 00000000 00010000 0005 03 53 /a b\n"
                           "0000000000000000: 00000002 00000000 00000000 0006 04 54\n"
                           "0000000000000000: 00000002 00000000 00000000 0000 05 55\n");
    for (const auto &[inode, want] : rows) {
        EXPECT_EQ(written("socket:[" + inode + "]"),
                  "[7,3,8,12,S,1,a,[socket" + (want.empty() ? "" : "," + want) + "]]")
            << inode;
        EXPECT_THAT(logged(),
                    ElementsAre("[debug] libzorv_proc.add_socket(): Duplicate socket inode 41",
                                "[debug] libzorv_proc.add_socket(): Duplicate socket inode 42",
                                "[error] libzorv_proc.parse_sockets(): Failed to open "
                                "'/proc/net/udp6': No such file or directory"));
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
        {nullptr, fds + 1, ZORV_FD_UNKNOWN, {link}},
        {nullptr, fds + 2, 5, {link}},
        {nullptr, fds + 3, ZORV_FD_PIPE, {nullptr}},
        {nullptr, fds + 4, ZORV_FD_SOCKET, {.socket = &tcp}},
        {nullptr, fds + 5, ZORV_FD_SOCKET, {.socket = &odd}},
        {nullptr, nullptr, ZORV_FD_SOCKET, {.socket = &unix_one}},
    };
    zorv_ps_record record = {};
    record.fds = {fds, fds + 5};
    EXPECT_EQ(dumped(Json(zorv_fds_to_array(&record)).get()),
              R"([{"fd_type":"unknown"},{"fd_type":"unknown"},{"fd_type":"pipe"},)"
              R"({"fd_type":"socket","socket_type":"tcp",)"
              R"("socket":{"local_port":"*","remote_port":65535,"state":"UNKNOWN"}},)"
              R"({"fd_type":"socket","socket_type":"unknown","socket":{}},)"
              R"({"fd_type":"socket","socket_type":"unix",)"
              R"("socket":{"refcnt":2,"type":"STREAM","path":"/a","state":"LISTENING"}}])");
}

TEST_F(Ps, DescriptorsOfARealProcess)
{
    kernel_proc();
    for (const int family : {AF_INET, AF_INET6}) {
        const auto found = descriptors([family] {
            const int listener = make_socket(family, SOCK_STREAM, 1000);
            check(listen(listener, 1), "listen");
            make_socket(family, SOCK_STREAM, 2000, 1000);
            check(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC), "accept");
            make_socket(family, SOCK_STREAM, 0); // in no table
            make_socket(family, SOCK_DGRAM, 3000);
            make_socket(family, SOCK_DGRAM, 3001, 3000);
        });
        const std::string tcp = family == AF_INET ? "socket,tcp," : "socket,tcp6,";
        const std::string udp = family == AF_INET ? "socket,udp," : "socket,udp6,";
        EXPECT_THAT(found, ElementsAre(tcp + "1000,*,LISTEN", tcp + "2000,1000,ESTABLISHED",
                                       tcp + "1000,2000,ESTABLISHED", "socket",
                                       udp + "3000,*,CLOSE", udp + "3001,3000,ESTABLISHED"));
    }
    const auto found = descriptors([] {
        const int path = make_socket(AF_UNIX, SOCK_STREAM, 0);
        const sockaddr_un address = {AF_UNIX, "/tmp/my socket"};
        check(bind(path, reinterpret_cast<const sockaddr *>(&address), sizeof address), "bind");
        check(listen(path, 1), "listen");
        const int name = make_socket(AF_UNIX, SOCK_DGRAM, 0);
        check(bind(name, reinterpret_cast<const sockaddr *>("\1\0\0name"), 7), "bind");
        int pair[2];
        check(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, pair), "socketpair");
        check(eventfd(0, EFD_CLOEXEC), "eventfd");
        for (int n = 0; n < 500; ++n) // more than the kernel hands out at a time
            make_socket(AF_UNIX, SOCK_DGRAM, 0);
    });
    ASSERT_EQ(found.size(), 505U);
    EXPECT_EQ(found[0], "socket,unix,2,STREAM,/tmp/my,LISTENING");
    EXPECT_EQ(found[1], "socket,unix,2,DGRAM,@name,UNCONNECTED");
    EXPECT_EQ(found[2], "socket,unix,3,SEQPACKET,CONNECTED");
    EXPECT_EQ(found[4], "anon,anon_inode:[eventfd]");
    EXPECT_EQ(std::count(found.begin(), found.end(), "socket,unix,2,DGRAM,UNCONNECTED"), 500);
    EXPECT_THAT(descriptors([] {}), IsEmpty());
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
        const Child child([&name] { prctl(PR_SET_NAME, name.c_str()); });
        List list(zorv_ps());
        EXPECT_EQ(list->last->pid, child.pid());
        EXPECT_EQ(list->last->comm, name);
        EXPECT_EQ(list->last->ppid, getpid());
        EXPECT_EQ(list->last->state, 'T');
        const Json array(zorv_ps_list_to_array(list.release()));
        const Json text(json_string(name.c_str())); // none for what is not UTF-8
        const json_t *const last = json_array_get(array.get(), json_array_size(array.get()) - 1);
        EXPECT_EQ(member(last, "comm"), dumped(text.get())) << name;
    }
    // A newline ends the line that is read, and the name is never closed.
    const Child hidden([] { prctl(PR_SET_NAME, "a\nb"); });
    EXPECT_NE(List(zorv_ps())->last->pid, hidden.pid());
}

TEST_F(Ps, FilterLeavesOutWhatItAnswersOneFor)
{
    kernel_proc();
    prctl(PR_SET_NAME, "test");
    const Child a([] {}), b([] {}), c([] {});
    int left_out = b.pid();
    const auto filter = [](zorv_ps_record *record, void *arg) {
        EXPECT_NE(record->fds.first, nullptr); // complete already
        return record->pid == *static_cast<int *>(arg) ? 1 : record->pid % 2 ? -1 : 2;
    };
    const List list(zorv_ps_filter(1, filter, &left_out));
    std::vector<int> pids;
    const zorv_ps_record *record;
    for (zorv_ps_each(record, list.get()))
        pids.push_back(record->pid);
    EXPECT_THAT(pids, ElementsAre(1, getpid(), a.pid(), c.pid()));
    EXPECT_EQ(list->count, 4);
    EXPECT_EQ(list->last->pid, c.pid()); // a ring, both ways
    EXPECT_EQ(list->last->prev->prev->prev, list->first);
    EXPECT_EQ(static_cast<void *>(list->first->prev), list.get());
    EXPECT_EQ(static_cast<void *>(list->last->next), list.get());

    const List none(zorv_ps_filter(
        0, [](zorv_ps_record *, void *) { return 1; }, nullptr));
    EXPECT_EQ(none->count, 0);
    EXPECT_EQ(shown(none), "");
}

TEST_F(Ps, ProcessesThatComeAndGoDoNoHarm)
{
    kernel_proc();
    libzorv_log_level = 0;
    if (fork() == 0) { // some 200 a second, each with a few descriptors
        for (;;) {
            if (fork() == 0) {
                socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
                usleep(8'000);
                _exit(0);
            }
            usleep(5'000);
            while (waitpid(-1, nullptr, WNOHANG) > 0)
                continue;
        }
    }
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

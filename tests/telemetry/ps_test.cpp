// Real processes, descriptors and sockets under the kernel's own /proc, and what a kernel would not
// write in a written one.
#include <zorv/ps.h>

#include <zorv/log.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>

#include <arpa/inet.h>
#include <fcntl.h>
#include <jansson.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/device.h"
#include "support/enter.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Ps = Device;

template <auto Release>
struct Releaser {
    void operator()(auto *object) const { Release(object); }
};
using List = std::unique_ptr<zorv_ps_list, Releaser<zorv_ps_list_free>>;
using Json = std::unique_ptr<json_t, Releaser<json_decref>>;

// A process that has done its work and then stops until the test ends.
class Child {
public:
    explicit Child(const std::function<void()> &work)
        : pid_(static_cast<pid_t>(check(fork(), "fork")))
    {
        int status = 0;
        if (pid_ == 0)
            run(work);
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
    pid_t pid() const { return pid_; }

private:
    [[noreturn]] static void run(const std::function<void()> &work)
    {
        try {
            work();
            raise(SIGSTOP);
        } catch (const std::exception &error) {
            dprintf(STDERR_FILENO, "%s\n", error.what());
        }
        _exit(1);
    }

    pid_t pid_;
};

const zorv_ps_record *find(const List &list, int pid)
{
    const zorv_ps_record *record;
    for (zorv_ps_each(record, list.get())) {
        if (record->pid == pid)
            return record;
    }
    return nullptr;
}

std::vector<int> pids(const List &list)
{
    std::vector<int> found;
    const zorv_ps_record *record;
    for (zorv_ps_each(record, list.get()))
        found.push_back(record->pid);
    return found;
}

std::string dump(json_t *json)
{
    const std::unique_ptr<char, decltype(&free)> text(json_dumps(json, JSON_COMPACT), free);
    return text ? text.get() : "(none)";
}

// The descriptors of a child that has none but those it opens, as JSON objects.
std::vector<std::string> descriptors(const std::function<void()> &open_them)
{
    const Child child([&] {
        close_range(0, ~0U, 0);
        open_them();
    });
    const List list(zorv_ps_filter(1, nullptr, nullptr));
    const auto record = const_cast<zorv_ps_record *>(find(list, child.pid()));
    const Json array(zorv_fds_to_array(record));
    std::vector<std::string> found;
    size_t index;
    json_t *fd;
    json_array_foreach(array.get(), index, fd) found.push_back(dump(fd));
    EXPECT_EQ(record->state, 'T');
    return found;
}

int make_socket(int family, int type)
{
    return static_cast<int>(check(socket(family, type, 0), "socket"));
}

union Address {
    sockaddr any;
    sockaddr_in ip4;
    sockaddr_in6 ip6;
    sockaddr_un local;
};

// The address of loopback at the port, or of a unix socket; "@name" is an abstract one.
socklen_t make_address(Address &address, int family, int port, const std::string &path)
{
    address = {};
    address.any.sa_family = static_cast<sa_family_t>(family);
    if (family == AF_INET) {
        address.ip4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.ip4.sin_port = htons(static_cast<uint16_t>(port));
        return sizeof address.ip4;
    }
    if (family == AF_INET6) {
        address.ip6.sin6_addr = in6addr_loopback;
        address.ip6.sin6_port = htons(static_cast<uint16_t>(port));
        return sizeof address.ip6;
    }
    path.copy(address.local.sun_path, sizeof address.local.sun_path - 1);
    if (path[0] == '@')
        address.local.sun_path[0] = '\0';
    return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
}

void bind_to(int fd, int family, int port, const std::string &path = "")
{
    Address address;
    const socklen_t length = make_address(address, family, port, path);
    check(bind(fd, &address.any, length), "bind");
}

void connect_to(int fd, int family, int port, const std::string &path = "")
{
    Address address;
    const socklen_t length = make_address(address, family, port, path);
    if (connect(fd, &address.any, length) != 0 && errno != EINPROGRESS)
        check(-1, "connect");
}

void wait_for_state(int fd, int state)
{
    tcp_info info = {};
    for (socklen_t size = sizeof info; info.tcpi_state != state; usleep(1000))
        check(getsockopt(fd, IPPROTO_TCP, TCP_INFO, &info, &size), "TCP_INFO");
}

TEST_F(Ps, NamesOfAllBytesAreKeptWhole)
{
    kernel_proc();
    std::vector<std::string> names = {") R 1 (", "((", "))", " a b ", "", "a\\b"};
    for (int byte = 1; byte < 256; byte += 15) {
        std::string name;
        for (int c = byte; c < byte + 15 && c < 256; c++)
            name += c == '\n' ? ' ' : static_cast<char>(c);
        names.push_back(name);
    }
    for (const std::string &name : names) {
        SCOPED_TRACE(name);
        const Child child([&name] { prctl(PR_SET_NAME, name.c_str()); });
        List list(zorv_ps());
        const zorv_ps_record *const record = list->last;
        ASSERT_EQ(record->pid, child.pid());
        EXPECT_EQ(record->comm, name);
        EXPECT_EQ(record->ppid, getpid());
        EXPECT_EQ(record->state, 'T');

        const Json array(zorv_ps_list_to_array(list.release()));
        const size_t last = json_array_size(array.get()) - 1;
        const char *comm =
            json_string_value(json_object_get(json_array_get(array.get(), last), "comm"));
        const Json checked(json_string(name.c_str())); // none for what is not UTF-8
        EXPECT_EQ(comm ? comm : "(none)", checked ? name : "(none)");
    }
    // A newline ends the line that is read, and the name is never closed.
    const Child hidden([] { prctl(PR_SET_NAME, "a\nb"); });
    EXPECT_EQ(find(List(zorv_ps()), hidden.pid()), nullptr);
}

TEST_F(Ps, SizesAreThoseOfTheKernel)
{
    kernel_proc();
    const Child child([] {});
    const List list(zorv_ps());
    const zorv_ps_record *const record = find(list, child.pid());
    ASSERT_NE(record, nullptr);
    std::istringstream fields(read("/proc/" + std::to_string(child.pid()) + "/stat"));
    std::vector<std::string> words;
    for (std::string word; fields >> word;)
        words.push_back(word);
    EXPECT_EQ(record->vsz, std::stoull(words.at(22)) / 1024);
    EXPECT_EQ(record->rss, std::stoll(words.at(23)) * sysconf(_SC_PAGESIZE) / 1024);
}

TEST_F(Ps, CommandLinesLoseTheirNulsAndTheLastByte)
{
    file("/proc/7/stat", "7 (a) S 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 4096 1 0\n");
    std::filesystem::create_directories("/proc/7/fd");
    const struct {
        std::string bytes, cmdline;
    } rows[] = {
        {std::string("sh\0-c\0\0x y\0", 11), "sh -c  x y"},
        {"title", "titl"}, // a process that wrote over its own
        {std::string(1, '\0'), ""},
        {std::string(1024, 'x'), std::string(1023, 'x')},
        {std::string(1025, 'x'), std::string(1023, 'x')},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.bytes);
        file("/proc/7/cmdline", row.bytes);
        const List list(zorv_ps());
        ASSERT_EQ(list->count, 1);
        EXPECT_EQ(list->first->cmdline, row.cmdline);
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
    EXPECT_EQ(dump(Json(zorv_ps_list_to_array(nullptr)).get()), "[]");
    EXPECT_EQ(dump(Json(zorv_fds_to_array(nullptr)).get()), "[]");
    zorv_ps_list_free(nullptr);
}

TEST_F(Ps, FilterLeavesOutWhatItAnswersOneFor)
{
    kernel_proc();
    const Child a([] {}), b([] {}), c([] {});
    struct Seen {
        int out;
        std::vector<int> answers;
    } seen = {b.pid(), {}};
    const auto answer = [](zorv_ps_record *record, void *arg) {
        auto *const all = static_cast<Seen *>(arg);
        EXPECT_NE(record->fds.first, nullptr); // complete already
        all->answers.push_back(record->pid == all->out ? 1 : record->pid % 2 ? -1 : 2);
        return all->answers.back();
    };
    const List list(zorv_ps_filter(1, answer, &seen));
    EXPECT_THAT(pids(list), ElementsAre(1, getpid(), a.pid(), c.pid()));
    EXPECT_EQ(list->count, 4);
    EXPECT_EQ(seen.answers.size(), 5u);
    EXPECT_EQ(list->last->pid, c.pid()); // a ring, both ways
    EXPECT_EQ(list->last->prev->prev->prev, list->first);
    EXPECT_EQ(static_cast<void *>(list->first->prev), list.get());
    EXPECT_EQ(static_cast<void *>(list->last->next), list.get());

    const List none(zorv_ps_filter(
        0, [](zorv_ps_record *, void *) { return 1; }, nullptr));
    EXPECT_EQ(none->count, 0);
    EXPECT_THAT(pids(none), IsEmpty());
}

TEST_F(Ps, DescriptorsByKind)
{
    kernel_proc();
    mkdir("/tmp/a:[b]", 0755);
    // The link of a path as long as that, and of one that is a byte longer.
    const std::string folder = "/tmp/" + std::string(200, 'd');
    mkdir(folder.c_str(), 0755);
    const std::string longest = folder + "/" + std::string(385 - folder.size() - 1, 'f');
    const auto found = descriptors([&] {
        open("/dev/null", O_RDWR | O_CLOEXEC);
        open("/tmp/gone", O_CREAT | O_RDWR | O_CLOEXEC, 0600);
        unlink("/tmp/gone");
        open(longest.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
        open((longest + "f").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
        open("/tmp/a:[b]", O_RDONLY | O_CLOEXEC | O_DIRECTORY);
        open("/tmp/\xff", O_CREAT | O_RDWR | O_CLOEXEC, 0600);
        open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
        eventfd(0, 0);
        epoll_create1(EPOLL_CLOEXEC);
        inotify_init1(IN_CLOEXEC);
    });
    EXPECT_THAT(found, ElementsAre("{\"fd_type\":\"file\",\"link\":\"/dev/null\"}",
                                   "{\"fd_type\":\"file\",\"link\":\"/tmp/gone (deleted)\"}",
                                   "{\"fd_type\":\"file\",\"link\":\"" + longest + "\"}",
                                   "{\"fd_type\":\"file\"}", // not UTF-8
                                   "{\"fd_type\":\"anon\",\"link\":\"anon_inode:[eventfd]\"}",
                                   "{\"fd_type\":\"anon\",\"link\":\"anon_inode:[eventpoll]\"}",
                                   "{\"fd_type\":\"file\",\"link\":\"anon_inode:inotify\"}"));
    const std::vector<std::string> lines = logged();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_THAT(lines[0], testing::MatchesRegex(
                              "\\[error\\] libzorv_proc.resolve_fd_path\\(\\): Resolved path "
                              "truncated '/proc/[0-9]+/fd/3 ->  /tmp/d+/f+'"));
    EXPECT_EQ(lines[1], "[warn ] libzorv_proc.walk_process_fds(): Unknown FD type '/tmp/a:[b]'");
    EXPECT_THAT(lines[2], testing::HasSubstr("Unknown FD type 'net:["));

    EXPECT_THAT(descriptors([] {
                    int ends[2];
                    check(pipe2(ends, O_CLOEXEC), "pipe");
                }),
                testing::Each(testing::MatchesRegex(
                    "\\{\"fd_type\":\"pipe\",\"link\":\"pipe:\\[[0-9]+\\]\"\\}")));
    EXPECT_THAT(descriptors([] {}), IsEmpty());
}

std::string inet(const std::string &type, const std::string &local, const std::string &remote,
                 const std::string &state)
{
    return R"({"fd_type":"socket","socket_type":")" + type + R"(","socket":{"local_port":)" +
           local + ",\"remote_port\":" + remote + ",\"state\":\"" + state + "\"}}";
}

TEST_F(Ps, InternetSocketsByState)
{
    kernel_proc();
    for (const int family : {AF_INET, AF_INET6}) {
        const std::string six = family == AF_INET6 ? "6" : "";
        const auto found = descriptors([family] {
            const auto client = [family](int local) {
                const int fd = make_socket(family, SOCK_STREAM);
                bind_to(fd, family, local);
                return fd;
            };
            const int listener = client(1000);
            check(listen(listener, 1), "listen");
            connect_to(client(2001), family, 1000); // 1: stays connected
            check(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC), "accept");
            const int half = client(2002); // 3: closes its half
            connect_to(half, family, 1000);
            check(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC), "accept");
            shutdown(half, SHUT_WR);
            wait_for_state(half, TCP_FIN_WAIT2); // the other end takes its time to acknowledge
            for (int port = 2003; port < 2007; ++port) { // 5: more than wait in the queue
                const int fd = client(port);
                fcntl(fd, F_SETFL, O_NONBLOCK);
                connect_to(fd, family, 1000);
            }
            make_socket(family, SOCK_STREAM); // 9: in no table
            bind_to(make_socket(family, SOCK_DGRAM), family, 3000);
            const int udp = make_socket(family, SOCK_DGRAM);
            bind_to(udp, family, 3001);
            connect_to(udp, family, 3000);
        });
        const std::string tcp = "tcp" + six, udp = "udp" + six;
        EXPECT_THAT(
            found,
            ElementsAre(
                inet(tcp, "1000", "\"*\"", "LISTEN"), inet(tcp, "2001", "1000", "ESTABLISHED"),
                inet(tcp, "1000", "2001", "ESTABLISHED"), inet(tcp, "2002", "1000", "FIN_WAIT2"),
                inet(tcp, "1000", "2002", "CLOSE_WAIT"), inet(tcp, "2003", "1000", "ESTABLISHED"),
                inet(tcp, "2004", "1000", "ESTABLISHED"), inet(tcp, "2005", "1000", "SYN_SENT"),
                inet(tcp, "2006", "1000", "SYN_SENT"), "{\"fd_type\":\"socket\"}",
                inet(udp, "3000", "\"*\"", "CLOSE"), inet(udp, "3001", "3000", "ESTABLISHED")));
    }
}

TEST_F(Ps, UnixSocketsByTypeAndState)
{
    kernel_proc();
    const auto found = descriptors([] {
        const int listener = make_socket(AF_UNIX, SOCK_STREAM);
        bind_to(listener, AF_UNIX, 0, "/tmp/my socket");
        check(listen(listener, 1), "listen");
        connect_to(make_socket(AF_UNIX, SOCK_STREAM), AF_UNIX, 0, "/tmp/my socket");
        bind_to(make_socket(AF_UNIX, SOCK_DGRAM), AF_UNIX, 0, "@name");
        int pair[2];
        check(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, pair), "socketpair");
    });
    const auto local = [](int references, const char *type, const char *path, const char *state) {
        return R"({"fd_type":"socket","socket_type":"unix","socket":{"refcnt":)" +
               std::to_string(references) + ",\"type\":\"" + type + "\"" + path + ",\"state\":\"" +
               state + "\"}}";
    };
    EXPECT_THAT(found, ElementsAre(local(2, "STREAM", ",\"path\":\"/tmp/my\"", "LISTENING"),
                                   local(3, "STREAM", "", "CONNECTED"),
                                   local(2, "DGRAM", ",\"path\":\"@name\"", "UNCONNECTED"),
                                   local(3, "SEQPACKET", "", "CONNECTED"),
                                   local(3, "SEQPACKET", "", "CONNECTED")));
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
    return dump(Json(zorv_fds_to_array(list->first)).get());
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
        {"0001", "00010000", "01", "STREAM", "LISTENING"},
        {"0002", "00000000", "01", "DGRAM", "UNCONNECTED"},
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
    EXPECT_EQ(dump(array.get()), R"([{"pid":7,"ppid":1,"vsz":4,"rss":4,"stat":"S","fd_count":-1,)"
                                 R"("comm":"a","fds":[]}])");
    EXPECT_THAT(logged(), ElementsAre("[error] libzorv_proc.walk_process_fds(): Failed to open "
                                      "'/proc/7/fd': Permission denied"));
}

size_t open_descriptors()
{
    using Walk = std::filesystem::directory_iterator;
    return static_cast<size_t>(std::distance(Walk("/proc/self/fd"), Walk()));
}

TEST_F(Ps, ProcessesThatComeAndGoDoNoHarm)
{
    kernel_proc();
    libzorv_log_level = 0;
    const pid_t spawner = fork();
    if (spawner == 0) { // some 50 a second, each with a few descriptors
        for (;;) {
            if (fork() == 0) {
                make_socket(AF_INET, SOCK_STREAM);
                usleep(30'000);
                _exit(0);
            }
            usleep(20'000);
            while (waitpid(-1, nullptr, WNOHANG) > 0)
                continue;
        }
    }
    const size_t before = open_descriptors();
    for (int round = 0; round < 200; ++round) {
        const Json array(zorv_ps_list_to_array(zorv_ps_filter(1, nullptr, nullptr)));
        size_t index;
        json_t *process;
        ASSERT_GE(json_array_size(array.get()), 2u);
        json_array_foreach(array.get(), index, process)
        {
            ASSERT_EQ(json_object_size(process), 8u);
            ASSERT_NE(dump(process), "(none)");
        }
    }
    EXPECT_EQ(open_descriptors(), before);
    kill(spawner, SIGKILL);
}

} // namespace

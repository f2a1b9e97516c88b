// Real descriptors and sockets under the kernel's own /proc.
#include <zorv/ps.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include "ps_list.h"

namespace {

using Ps = Device;

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
    json_array_foreach(array.get(), index, fd) found.push_back(dumped(fd));
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

// More than the kernel hands out at a time, of each table.
TEST_F(Ps, ManySocketsAreAllKnown)
{
    kernel_proc();
    constexpr size_t kEach = 100;
    const auto found = descriptors([] {
        for (size_t n = 0; n < kEach; ++n) {
            for (const int family : {AF_INET, AF_INET6}) {
                check(listen(make_socket(family, SOCK_STREAM), 1), "listen");
                bind_to(make_socket(family, SOCK_DGRAM), family, 0);
            }
            make_socket(AF_UNIX, SOCK_DGRAM);
        }
    });
    EXPECT_EQ(found.size(), 5 * kEach);
    EXPECT_THAT(found, testing::Each(testing::HasSubstr("\"socket_type\"")));
}

TEST_F(Ps, RecordsOfTheCallersMakingMayHoldAnyKind)
{
    char link[] = "/a";
    zorv_inet_socket data = {0, 65535, 13};
    const zorv_socket_record tcp = {1, ZORV_SOCKET_TCP, {&data}, {}}, odd = {1, 6, {nullptr}, {}};
    zorv_fd_record fds[] = {
        {nullptr, nullptr, ZORV_FD_UNKNOWN, {link}},
        {nullptr, nullptr, 5, {link}},
        {nullptr, nullptr, ZORV_FD_PIPE, {nullptr}},
        {nullptr, nullptr, ZORV_FD_SOCKET, {nullptr}},
        {nullptr, nullptr, ZORV_FD_SOCKET, {nullptr}},
    };
    fds[3].target.socket = &tcp;
    fds[4].target.socket = &odd;
    zorv_ps_record record = {};
    record.fds = {fds, fds + 4};
    for (size_t n = 0; n + 1 < std::size(fds); ++n)
        fds[n].next = fds + n + 1;
    EXPECT_EQ(dumped(Json(zorv_fds_to_array(&record)).get()),
              R"([{"fd_type":"unknown"},{"fd_type":"unknown"},{"fd_type":"pipe"},)" +
                  inet("tcp", "\"*\"", "65535", "UNKNOWN") +
                  R"(,{"fd_type":"socket","socket_type":"unknown","socket":{}}])");
}

} // namespace

#include <string>

#include <fcntl.h>
#include <jansson.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/device.h"
#include "support/enter.h"

using testing::HasSubstr;

namespace {

class ZorvctlDiagnostics : public Device {
protected:
    void SetUp() override { kernel_proc(); }
};

Device::Outcome zorvctl(const std::string &arguments)
{
    return Device::run(ZORVCTL " " + arguments);
}

// Names the test itself, which is the process that the verbs are asked about.
void be_named(const char *name)
{
    prctl(PR_SET_NAME, name);
}

TEST_F(ZorvctlDiagnostics, PsIsUtf8WhateverTheName)
{
    be_named("caf\xc3\xa9 \x1b\xff");
    const std::string shown = zorvctl("ps").output;
    EXPECT_THAT(shown, testing::StartsWith("PID  PPID  STAT"));
    EXPECT_THAT(shown, HasSubstr("caf\xc3\xa9 \\x1b\xef\xbf\xbd"));

    const std::string document =
        zorvctl("ps --json --name \"$(printf 'caf\\303\\251 \\033\\377')\"").output;
    json_error_t error;
    json_t *json = json_loads(document.c_str(), JSON_REJECT_DUPLICATES, &error);
    ASSERT_NE(json, nullptr) << error.text;
    const json_t *process = json_array_get(json_object_get(json, "processes"), 0);
    EXPECT_STREQ(json_string_value(json_object_get(process, "comm")),
                 "caf\xc3\xa9 \x1b\xef\xbf\xbd");
    EXPECT_TRUE(json_is_true(json_object_get(process, "invalid_utf8")));
    EXPECT_EQ(json_integer_value(json_object_get(process, "pid")), getpid());
    json_decref(json);

    EXPECT_EQ(zorvctl("ps --name nobody").status, 1);
    EXPECT_EQ(zorvctl("ps --json --name nobody").output, "{\"processes\":[]}\n");
    EXPECT_EQ(zorvctl("sockets --json --name nobody").output, "{\"sockets\":[]}\n");
}

TEST_F(ZorvctlDiagnostics, SocketsAreJoinedWithTheirOwners)
{
    be_named("server");
    const auto listener = static_cast<int>(check(socket(AF_INET, SOCK_STREAM, 0), "socket"));
    check(listen(listener, 1), "listen"); // at a port of the kernel's choice
    socket(AF_NETLINK, SOCK_RAW, 0);
    open("/tmp/log", O_CREAT | O_WRONLY | O_CLOEXEC, 0600);

    const std::string shown = zorvctl("sockets --name server").output;
    EXPECT_THAT(shown,
                testing::ContainsRegex("\n +[0-9]+  server  tcp          LISTEN +[0-9]+ +\\*"));
    EXPECT_THAT(shown, testing::ContainsRegex("\n +[0-9]+  server  unknown      - "));
    EXPECT_THAT(
        zorvctl("sockets --json --name server").output,
        testing::ContainsRegex("\"socket_type\":\"tcp\",\"state\":\"LISTEN\",\"local_port\":"
                               "[0-9]+,\"remote_port\":\"\\*\",\"pid\":" +
                               std::to_string(getpid()) + ",\"comm\":\"server\""));
    EXPECT_THAT(zorvctl("ps --fds --name server").output,
                testing::AllOf(HasSubstr("server\nFD TYPE"), HasSubstr("file     /tmp/log ")));
    EXPECT_THAT(zorvctl("ps --json --fds --name server").output,
                HasSubstr("{\"fd_type\":\"file\",\"link\":\"/tmp/log\"}"));
}

// Mounts over /proc: written statistics, and this process is the only one.
void write_proc()
{
    mount_at("tmpfs", "/proc");
    Device::file("/proc/7/stat",
                 "7 (init) S 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 4096 1 0\n");
    Device::file("/proc/7/cmdline", "/sbin/init ");
    mkdir("/proc/7/fd", 0755);
    Device::file("/proc/meminfo", "MemTotal: 3000 kB\nMemAvailable: 1000 kB\n");
}

TEST_F(ZorvctlDiagnostics, MemIsThePercentageToo)
{
    write_proc();
    EXPECT_THAT(zorvctl("mem").output,
                testing::AllOf(testing::StartsWith("MemTotal        3000\n"),
                               testing::EndsWith("used_percent    66.67\n")));
    EXPECT_THAT(zorvctl("mem --json").output, testing::EndsWith("\"used_percent\":66.67}\n"));
}

// With a /proc/net that has the table, or nothing; the shell becomes zorvctl and keeps the mount.
Device::Outcome conntrack(const std::string &arguments, const char *table = nullptr)
{
    std::string command = "mount -t tmpfs net /proc/$$/net && ";
    if (table) {
        Device::file("/tmp/table", table);
        command += "cp /tmp/table /proc/$$/net/nf_conntrack && ";
    }
    return Device::run(command + "exec " ZORVCTL " conntrack " + arguments);
}

TEST_F(ZorvctlDiagnostics, ConntrackListsHostsOrNamesTheKernelOption)
{
    const Outcome absent = conntrack("--json");
    EXPECT_EQ(absent.status, 3);
    EXPECT_THAT(absent.output, testing::AllOf(HasSubstr("\"code\":\"unavailable\""),
                                              HasSubstr("CONFIG_NF_CONNTRACK_PROCFS")));
    EXPECT_EQ(conntrack("", "").output, "");
    EXPECT_EQ(conntrack("--json", "").output, "{\"hosts\":[],\"total\":0}\n");
    constexpr char kTable[] = "ipv4 2 tcp src=192.0.2.1 dst=192.0.2.9 x\n"
                              "ipv4 2 udp src=192.0.2.2 dst=192.0.2.9 x\n";
    EXPECT_EQ(conntrack("-n 2", kTable).output, "HOST       COUNT\n"
                                                "192.0.2.9      2\n"
                                                "192.0.2.1      1\n");
    EXPECT_EQ(conntrack("-n 1 --json", kTable).output,
              "{\"hosts\":[{\"host\":\"192.0.2.9\",\"count\":2}],\"total\":3}\n");
    EXPECT_EQ(conntrack("-n -1", kTable).status, 2);
}

TEST_F(ZorvctlDiagnostics, TopPrintsOnceWhereThereIsNoTerminal)
{
    write_proc();
    file("/proc/net/nf_conntrack", "ipv4 2 tcp src=192.0.2.1 dst=192.0.2.9 x\n");
    EXPECT_EQ(zorvctl("top </dev/null").output,
              "memory  66.7 % of 3000 kB used, 1000 kB available\n\n"
              "HOST       COUNT\n192.0.2.1      1\n192.0.2.9      1\n\n"
              "PID  PPID  STAT  RSS  VSZ  FD COUNT  COMM  CMDLINE\n"
              "  7     1  S       4    4         0  init  /sbin/init\n");
    remove("/proc/net/nf_conntrack");
    EXPECT_THAT(zorvctl("top --json 2>/dev/null").output,
                HasSubstr("\"hosts\":null,\"processes\":[{"));
}

// A terminal with zorvctl on it.
class Terminal {
public:
    Terminal()
    {
        mkdir("/dev/pts", 0755);
        mount_at("devpts", "/dev/pts", "newinstance,ptmxmode=0666");
        symlink_ptmx();
        master_ = static_cast<int>(check(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC), "ptmx"));
        check(grantpt(master_), "grantpt");
        check(unlockpt(master_), "unlockpt");
        const winsize size = {24, 80, 0, 0};
        check(ioctl(master_, TIOCSWINSZ, &size), "TIOCSWINSZ");
        child_ = static_cast<pid_t>(check(fork(), "fork"));
        if (child_ == 0)
            run(ptsname(master_));
    }
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;
    ~Terminal() { close(master_); }

    // Reads until the text has been shown so often in all; false when the terminal falls silent.
    bool shows(const std::string &text, int times = 1)
    {
        while (count(text) < times) {
            pollfd ready = {master_, POLLIN, 0};
            char block[4096];
            if (poll(&ready, 1, 30'000) <= 0)
                return false;
            const ssize_t length = ::read(master_, block, sizeof block);
            if (length <= 0)
                return count(text) >= times;
            seen_.append(block, static_cast<size_t>(length));
        }
        return true;
    }

    void type(const std::string &keys)
    {
        check(write(master_, keys.data(), keys.size()), "terminal");
    }

    void resize(unsigned short rows, unsigned short columns)
    {
        const winsize size = {rows, columns, 0, 0};
        check(ioctl(master_, TIOCSWINSZ, &size), "TIOCSWINSZ");
    }

    int wait() { return wait_for(child_); }

private:
    static void symlink_ptmx()
    {
        unlink("/dev/ptmx");
        check(symlink("pts/ptmx", "/dev/ptmx"), "ptmx");
    }

    [[noreturn]] static void run(const char *path)
    {
        setsid();
        const int slave = open(path, O_RDWR | O_CLOEXEC);
        ioctl(slave, TIOCSCTTY, 0);
        for (const int fd : {0, 1, 2})
            dup2(slave, fd);
        setenv("TERM", "linux", 1);
        execl(ZORVCTL, "zorvctl", "top", "-d", "0.1", nullptr);
        _exit(127);
    }

    int count(const std::string &text) const
    {
        int found = 0;
        for (size_t at = seen_.find(text); at != std::string::npos; at = seen_.find(text, at + 1))
            ++found;
        return found;
    }

    int master_ = -1;
    pid_t child_ = -1;
    std::string seen_;
};

TEST_F(ZorvctlDiagnostics, TopIsLiveOnATerminal)
{
    write_proc();
    kernel_processes();
    Terminal terminal;
    ASSERT_TRUE(terminal.shows("66.7 %"));
    file("/proc/3001/stat",
         "3001 (newcomer) R 7 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 4096 1 0\n");
    EXPECT_TRUE(terminal.shows("newcomer"));
    terminal.resize(10, 40);
    EXPECT_TRUE(terminal.shows("FD COUNT", 2));
    terminal.type("xq");
    EXPECT_EQ(terminal.wait(), 0);
}

} // namespace

// What zorvctl shows of processes, sockets, memory and connections.
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/enter.h"
#include "tools/zorvctl.h"

using testing::ContainsRegex;

namespace {

using ZorvctlDiagnostics = Zorvctl;

// Names the test itself, which is the process that the verbs are asked about.
void be_named(const char *name)
{
    prctl(PR_SET_NAME, name);
}

} // namespace

TEST_F(ZorvctlDiagnostics, PsIsUtf8WhateverTheName)
{
    be_named("caf\xc3\xa9 \x1b\xff");
    expect(0, "PID  PPID  STAT", "ps");
    expect(0, "caf\xc3\xa9 \\x1b\xef\xbf\xbd", "ps");

    const Json json =
        loaded(ctl("ps --json --name \"$(printf 'caf\\303\\251 \\033\\377')\"").output);
    const json_t *process = json_array_get(json_object_get(json.get(), "processes"), 0);
    EXPECT_STREQ(json_string_value(json_object_get(process, "comm")),
                 "caf\xc3\xa9 \x1b\xef\xbf\xbd");
    EXPECT_EQ(member(process, "invalid_utf8"), "true");
    EXPECT_EQ(member(process, "pid"), std::to_string(getpid()));

    expect(1, "{\"processes\":[]}\n", "ps --json --name nobody");
    expect(1, "{\"sockets\":[]}\n", "sockets --json --name nobody");
}

TEST_F(ZorvctlDiagnostics, SocketsAreJoinedWithTheirOwners)
{
    be_named("server");
    const auto listener = static_cast<int>(check(socket(AF_INET, SOCK_STREAM, 0), "socket"));
    check(listen(listener, 1), "listen"); // at a port of the kernel's choice
    socket(AF_NETLINK, SOCK_RAW, 0);
    open("/tmp/log", O_CREAT | O_WRONLY | O_CLOEXEC, 0600);

    const std::string shown = ctl("sockets --name server").output;
    EXPECT_THAT(shown, ContainsRegex("\n +[0-9]+  server  tcp          LISTEN +[0-9]+ +\\*"));
    EXPECT_THAT(shown, ContainsRegex("\n +[0-9]+  server  unknown      - "));
    EXPECT_THAT(ctl("sockets --json --name server").output,
                ContainsRegex("\"socket_type\":\"tcp\",\"state\":\"LISTEN\",\"local_port\":"
                              "[0-9]+,\"remote_port\":\"\\*\",\"pid\":" +
                              std::to_string(getpid()) + ",\"comm\":\"server\""));
    expect(0, "server\nFD TYPE", "ps --fds --name server");
    expect(0, "file     /tmp/log ", "ps --fds --name server");
    expect(0, R"({"fd_type":"file","link":"/tmp/log"})", "ps --json --fds --name server");
}

namespace {

// Mounts over /proc: written statistics, and this process is the only one. Without the kernel's own
// a sanitizer ends zorvctl with a status of its own.
void write_proc()
{
    mount_at("tmpfs", "/proc");
    Device::file("/proc/7/stat",
                 "7 (init) S 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 4096 1 0\n");
    Device::file("/proc/7/cmdline", "/sbin/init ");
    mkdir("/proc/7/fd", 0755);
    Device::file("/proc/meminfo", "MemTotal: 3000 kB\nMemAvailable: 1000 kB\n");
}

// With a /proc/net that has the table, or nothing; the shell becomes zorvctl and keeps the mount.
Device::Outcome conntrack(const std::string &arguments, const char *table = nullptr)
{
    std::string command = "mount -t tmpfs net /proc/$$/net && ";
    if (table) {
        Device::file("/tmp/table", table);
        command += "cp /tmp/table /proc/$$/net/nf_conntrack && ";
    }
    return Device::run(command + "exec zorvctl conntrack " + arguments);
}

} // namespace

TEST_F(ZorvctlDiagnostics, MemIsThePercentageToo)
{
    write_proc();
    EXPECT_THAT(ctl("mem").output, testing::AllOf(StartsWith("MemTotal        3000\n"),
                                                  HasSubstr("used_percent    66.67\n")));
    EXPECT_THAT(ctl("mem --json").output, HasSubstr("\"used_percent\":66.67}\n"));
}

TEST_F(ZorvctlDiagnostics, ConntrackListsHostsOrNamesTheKernelOption)
{
    const Outcome absent = conntrack("--json");
    EXPECT_EQ(absent.status, 3);
    EXPECT_THAT(absent.output, HasSubstr("CONFIG_NF_CONNTRACK_PROCFS"));
    EXPECT_EQ(conntrack("", "").output, "");
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
    EXPECT_EQ(ctl("top </dev/null").output,
              "memory  66.7 % of 3000 kB used, 1000 kB available\n\n"
              "HOST       COUNT\n192.0.2.1      1\n192.0.2.9      1\n\n"
              "PID  PPID  STAT  RSS  VSZ  FD COUNT  COMM  CMDLINE\n"
              "  7     1  S       4    4         0  init  /sbin/init\n");
    remove("/proc/net/nf_conntrack");
    EXPECT_THAT(ctl("top --json").output, HasSubstr("\"hosts\":null,\"processes\":[{"));
}

// The shell waits for each text on the terminal; a test that waits in vain is ended by alarm().
TEST_F(ZorvctlDiagnostics, TopIsLiveOnATerminal)
{
    alarm(60);
    write_proc();
    kernel_processes();
    must_run("mkdir -p /dev/pts && mount -t devpts -o newinstance,ptmxmode=0666 devpts /dev/pts && "
             "rm -f /dev/ptmx && ln -s pts/ptmx /dev/ptmx && mkfifo /tmp/keys");
    script("/tmp/on-terminal", "#!/bin/sh\nstty rows 24 cols 80\ntty >/tmp/tty\n"
                               "TERM=linux exec zorvctl top -d 0.1\n");
    script("/tmp/shows",
           "#!/bin/sh\nuntil [ $(grep -ao \"$1\" /tmp/seen | wc -l) -ge $2 ]; do :; done");
    const Outcome ended = run(R"(
        script -qefc /tmp/on-terminal /tmp/seen </tmp/keys >/dev/null & exec 3>/tmp/keys
        /tmp/shows '66.7 %' 1
        echo '3001 (newcomer) R 7 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 4096 1 0' >/tmp/stat
        mkdir /proc/3001 && mv /tmp/stat /proc/3001 && /tmp/shows newcomer 1
        stty -F $(cat /tmp/tty) rows 10 cols 40 && /tmp/shows 'FD COUNT' 2
        printf xq >&3
        wait $!)");
    EXPECT_EQ(ended.status, 0) << ended.errors;
}

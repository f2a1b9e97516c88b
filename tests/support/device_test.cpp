// What other tests rely on; each of these would else fail far from its cause.
#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/device.h"

using testing::ElementsAre;
using testing::HasSubstr;

TEST_F(Device, IsOursToWriteAndTheBuildMachineIsNot)
{
    for (const auto path : {"/etc/persistent/cfg/mgmt", "/usr/etc/.version", "/dev/kmsg",
                            "/usr/lib/build.properties", "/var/run/ntp.ready", "/var/log/messages",
                            "/proc/zorvhal/system.info", "/sys/class/net/br0/address"}) {
        file(path, "1\n");
        EXPECT_EQ(read(path), "1\n");
        remove(path);
        EXPECT_FALSE(exists(path)) << path;
    }
    EXPECT_EQ(open(ZORV_SOURCE_DIR "/slip", O_CREAT | O_WRONLY | O_CLOEXEC, 0600), -1);
    EXPECT_EQ(errno, EROFS);
    EXPECT_EQ(open("/usr/bin/slip", O_CREAT | O_WRONLY | O_CLOEXEC, 0600), -1);
    EXPECT_EQ(errno, EROFS);
    EXPECT_TRUE(exists(ZORV_SOURCE_DIR "/CMakeLists.txt"));
}

TEST_F(Device, RunsProgramsAndTheTestsOwnFirst)
{
    script("/usr/local/bin/logread", "#!/bin/sh\necho from the log; echo oops >&2; exit 3\n");
    const Outcome outcome = run("logread | cat; logread 2>/dev/null");
    EXPECT_EQ(outcome.status, 3);
    EXPECT_EQ(outcome.output, "from the log\nfrom the log\n");
    EXPECT_EQ(outcome.errors, "oops\n");
    EXPECT_EQ(run("kill -SEGV $$").status, 128 + SIGSEGV);
    EXPECT_THROW(must_run("exit 1"), std::runtime_error);
}

TEST_F(Device, HasANetworkOfItsOwn)
{
    must_run("ip link add br0 type bridge && ip addr add 192.0.2.1/24 dev br0");
    must_run("ip link add eth0 type veth peer name far0 && ip link set eth0 master br0");
    EXPECT_THAT(run("ip -o addr show dev lo").output, HasSubstr("127.0.0.1/8"));
    EXPECT_EQ(run("ip -o link | wc -l").output, "4\n");
    EXPECT_FALSE(exists("/sys/class"));
    kernel_sys();
    EXPECT_TRUE(exists("/sys/class/net/br0/brif/eth0"));
}

TEST_F(Device, SeesOnlyItsOwnProcesses)
{
    EXPECT_FALSE(exists("/proc/self"));
    kernel_proc();
    EXPECT_EQ(read("/proc/1/comm"), read("/proc/self/comm"));
    EXPECT_LT(getpid(), 10);
    must_run("sleep 1000 & echo $! > /tmp/pid");
    EXPECT_TRUE(alive(std::stoi(read("/tmp/pid"))));
}

TEST_F(Device, FillsAndRefusesLikeARealOne)
{
    small_disk("/etc/persistent", 8192);
    EXPECT_THROW(file("/etc/persistent/big", std::string(9000, 'x')), std::system_error);

    file("/etc/secret", "x");
    must_run("chmod 0 /etc/secret");
    EXPECT_EQ(read("/etc/secret"), "x");
    unprivileged();
    EXPECT_THROW(read("/etc/secret"), std::system_error);
}

TEST_F(Device, KeepsTheLinesOfTheStreamStderr)
{
    fprintf(stderr, "bridge: no such device\n");
    if (fork() == 0) {
        fprintf(stderr, "%s[%d]: [info ] a.b(): c\n", program_invocation_short_name, getpid());
        _exit(0);
    }
    wait(nullptr);
    EXPECT_THAT(logged(), ElementsAre("bridge: no such device", "[info ] a.b(): c"));
    EXPECT_THAT(logged(), ElementsAre());
}

// What other tests rely on; each of these would else fail far from its cause.
#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/device.h"

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

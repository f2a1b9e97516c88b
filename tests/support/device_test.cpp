// What other tests rely on; each of these would else fail far from its cause.

#include "support/device.h"

TEST_F(Device, IsOursToWriteAndTheBuildMachineIsNot)
{
    for (const auto path : {"/usr/etc/.version", "/dev/kmsg", "/usr/lib/build.properties",
                            "/var/run/ntp.ready", "/proc/zorvhal/system.info", "/sys/class/x"})
        EXPECT_NO_THROW(file(path, "1\n"));
    for (const auto path : {ZORV_SOURCE_DIR "/slip", "/usr/bin/slip"}) {
        EXPECT_EQ(open(path, O_CREAT | O_WRONLY | O_CLOEXEC, 0600), -1);
        EXPECT_EQ(errno, EROFS);
    }
}

TEST_F(Device, KeepsTheLinesOfTheStreamStderr)
{
    if (fork() == 0) {
        fprintf(stderr, "no such device\n%s[1]: [info ] a.b(): c\n", program_invocation_short_name);
        _exit(0);
    }
    wait(nullptr);
    EXPECT_THAT(logged(), ElementsAre("no such device", "[info ] a.b(): c"));
    EXPECT_THAT(logged(), IsEmpty());
}

// What other tests rely on: it would else fail far from its cause.

#include "support/device.h"

TEST_F(Device, IsOursToWriteAndTheBuildMachineIsNot)
{
    for (const auto path : {"/usr/etc/.version", "/dev/kmsg", "/usr/lib/x", "/sys/class/x"})
        EXPECT_NO_THROW(file(path, "1\n"));
    for (const auto path : {ZORV_SOURCE_DIR "/slip", "/usr/bin/slip"}) {
        EXPECT_EQ(open(path, O_CREAT | O_WRONLY | O_CLOEXEC, 0600), -1);
        EXPECT_EQ(errno, EROFS);
    }
}

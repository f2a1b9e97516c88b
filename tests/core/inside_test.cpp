// What the core's headers offer to other folders.
#include "core/lines.h"
#include "support/device.h"

using Inside = Device;

TEST_F(Inside, TheLastKeyedLineWins)
{
    file("/tmp/board", "boardid=1\nserialno=first\r\nserialno=a==b=\r\n xserialno=no\n");
    const zorv::File stream(fopen("/tmp/board", "re"));
    char value[zorv::kLineBuffer] = "kept";
    EXPECT_FALSE(zorv::read_last_value(stream.get(), "bomrev", value));
    EXPECT_STREQ(value, "kept");
    rewind(stream.get());
    EXPECT_TRUE(zorv::read_last_value(stream.get(), "serialno", value));
    EXPECT_STREQ(value, "b");
    EXPECT_STREQ(zorv::duplicate({"a\0b", 3}).get(), "a");
}

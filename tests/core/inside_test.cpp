// The core seen from inside: when memory runs short, and what other folders build on.
#include <zorv/buffer.h>
#include <zorv/format.h>

#include <cerrno>

#include "core/lines.h"
#include "support/allocation.h"
#include "support/device.h"

using Inside = Device;
using testing::MatchesRegex;

TEST_F(Inside, FormattedTextsFailInSilence)
{
    fail_allocation(1);
    EXPECT_EQ(malloc_printf("%d", 1), nullptr);
    EXPECT_THAT(logged(), ElementsAre());
}

TEST_F(Inside, PathReductionReportsIt)
{
    fail_allocation(1);
    errno = 0;
    EXPECT_EQ(vq_reduce_path("/a", nullptr), nullptr);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_THAT(logged(),
                ElementsAre(MatchesRegex("\\[error\\] libzorv_util.vq_reduce_path\\(\\): [0-9]+: "
                                         "malloc\\(4096\\) failed")));
    fail_allocation(2); // the shrinking: the larger text serves
    const zorv::Text whole(vq_reduce_path("/a/", nullptr));
    EXPECT_STREQ(whole.get(), "/a");
}

TEST_F(Inside, ABufferIsMadeWholeOrNotAtAll)
{
    for (const long n : {1, 2, 3}) {
        fail_allocation(n);
        EXPECT_EQ(buffer_create(), nullptr) << n;
    }
    buffer *const b = buffer_create();
    b->append(b, "abc", 3);
    for (const long n : {1, 2}) {
        fail_allocation(n);
        EXPECT_EQ(b->init(b, 10), -1);
    }
    fail_allocation(1);
    EXPECT_EQ(b->append_zero(b, 5000), nullptr);
    fail_allocation(1);
    EXPECT_EQ(b->printf(b, "%5000s", "x"), 0);
    EXPECT_EQ(b->length(b), 3U);
    EXPECT_EQ(b->capacity(b), 4096U);
    b->append_zero(b, 5000);
    fail_allocation(1);
    b->reset(b);
    EXPECT_THAT(logged(),
                ElementsAre("[warn ] buffer.buffer_reset(): Failed to reallocate buffer"));
    EXPECT_EQ(b->capacity(b), 12288U);
    EXPECT_EQ(b->length(b), 0U);
    buffer_destroy(b);
}

TEST_F(Inside, CopiesFailEmpty)
{
    fail_allocation(1);
    EXPECT_FALSE(zorv::duplicate("abc"));
    EXPECT_STREQ(zorv::duplicate({"a\0b", 3}).get(), "a");
}

TEST_F(Inside, TheLastKeyedLineWins)
{
    file("/tmp/board", "boardid=1\nserialno=first\r\nserialno=a==b=\r\n xserialno=no\n");
    const zorv::File stream(fopen("/tmp/board", "re"));
    char value[zorv::kLineBuffer] = "kept";
    EXPECT_TRUE(zorv::read_last_value(stream.get(), "serialno", value));
    EXPECT_STREQ(value, "b");
    rewind(stream.get());
    EXPECT_FALSE(zorv::read_last_value(stream.get(), "bomrev", value));
    EXPECT_STREQ(value, "b");
}

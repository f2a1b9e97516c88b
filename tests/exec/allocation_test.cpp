#include "support/allocation.h"

#include <zorv/exec.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "support/device.h"

namespace {

using Memory = Device;

TEST_F(Memory, RunsOutForACommand)
{
    libzorv_log_level = 8;
    const auto make = [] { return exec_create("/bin/a", "x", "y", nullptr); };
    for (const int n : {1, 2}) { // the object, its vector
        fail_allocation(n);
        EXPECT_EQ(make(), nullptr);
        EXPECT_THAT(logged(), ElementsAre(testing::HasSubstr("calloc(")));
    }
    fail_allocation(3); // an argument: it alone is missing, in silence
    exec_command *holed = make();
    ASSERT_NE(holed, nullptr);
    EXPECT_EQ(holed->argv[1], nullptr);
    EXPECT_STREQ(holed->argv[2], "y");
    exec_destroy(holed);
    EXPECT_THAT(logged(), IsEmpty());

    exec_command *whole = make();
    for (const int n : {1, 2, 3, 4}) { // a copy is whole or not at all
        fail_allocation(n);
        EXPECT_EQ(exec_copy(whole), nullptr);
    }
    exec_destroy(whole);
}

TEST_F(Memory, OfACaptureDoublesUpToTheLimitAndKeepsWhatItHasWhenItRunsOut)
{
    file("/tmp/output", std::string(4000, 'x'));
    constexpr struct {
        size_t limit;
        int failing;     // which allocation; 0 for none
        int allocations; // 1024 bytes, 2048, 4096, the limit
        size_t length;
    } kRows[] = {
        {5000, 0, 3, 4000}, {4000, 0, 3, 3999}, {2049, 0, 3, 2048},
        {1024, 0, 1, 1023}, {5000, 2, 2, 1023}, {5000, 3, 3, 2047},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(testing::Message() << row.limit << ", failing " << row.failing);
        const long before = allocations();
        if (row.failing != 0)
            fail_allocation(row.failing);
        const std::unique_ptr<char, decltype(&free)> text(
            popen_alloc_output("cat /tmp/output", row.limit), free);
        EXPECT_EQ(allocations() - before, row.allocations);
        EXPECT_EQ(std::string(text.get()), std::string(row.length, 'x'));
        if (row.failing != 0) {
            EXPECT_THAT(logged(), ElementsAre("[error] libzorv_exec.popen_alloc_output(): Failed "
                                              "to reallocate buffer, output truncated"));
        }
    }
    fail_allocation(1);
    EXPECT_EQ(popen_alloc_output("cat /tmp/output", 5000), nullptr);
    EXPECT_THAT(logged(), ElementsAre("[error] libzorv_exec.popen_alloc_output(): Failed to "
                                      "allocate buffer"));
}

} // namespace

// main.cpp - runs each selected TEST in a process and a device of its own.
#include "support/device.h"

namespace {

// Those that --gtest_filter leaves.
std::vector<std::string> selected_tests()
{
    GTEST_FLAG_SET(repeat, 0); // so it selects, and runs none
    [[maybe_unused]] const int none_failed = RUN_ALL_TESTS();
    GTEST_FLAG_SET(repeat, 1);
    std::vector<std::string> names;
    const auto &unit = *testing::UnitTest::GetInstance();
    for (int i = 0; i < unit.total_test_suite_count(); ++i) {
        const auto &suite = *unit.GetTestSuite(i);
        for (int j = 0; j < suite.total_test_count(); ++j)
            if (const auto &test = *suite.GetTestInfo(j); test.should_run())
                names.push_back(std::string(suite.name()) + "." + test.name());
    }
    return names;
}

// A test passes when it has run and nothing failed: one that skips itself does not.
int run_alone(const std::string &name)
{
    GTEST_FLAG_SET(filter, name);
    const bool passed = RUN_ALL_TESTS() == 0;
    const auto &unit = *testing::UnitTest::GetInstance();
    return passed && unit.successful_test_count() == 1 && unit.skipped_test_count() == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char **argv)
{
    GTEST_FLAG_SET(brief, true); // failures, and little else
    testing::InitGoogleMock(&argc, argv);
    if (GTEST_FLAG_GET(list_tests))
        return RUN_ALL_TESTS();
    const auto names = selected_tests();
    bool passed = !names.empty();
    for (const auto &name : names)
        if (const int status = run_in_device([&name] { return run_alone(name); }); status != 0) {
            printf("FAILED %s: status %d\n", name.c_str(), status);
            passed = false;
        }
    return passed ? 0 : 1;
}

// main.cpp - runs each selected TEST in a process and a device of its own.
#include <cstdio>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/enter.h"

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
        for (int j = 0; j < suite.total_test_count(); ++j) {
            const auto &test = *suite.GetTestInfo(j);
            if (test.should_run())
                names.push_back(std::string(suite.name()) + "." + test.name());
        }
    }
    return names;
}

// Prints failures and nothing else.
class Failures : public testing::EmptyTestEventListener {
    void OnTestPartResult(const testing::TestPartResult &result) override
    {
        if (!result.passed())
            printf("%s:%d: %s\n", result.file_name() ? result.file_name() : "(no file)",
                   result.line_number(), result.message());
    }
};

// A test passes when it has run and nothing failed: one that skips itself does not.
int run_alone(const std::string &name)
{
    GTEST_FLAG_SET(filter, name);
    auto &unit = *testing::UnitTest::GetInstance();
    auto &listeners = unit.listeners();
    delete listeners.Release(listeners.default_result_printer());
    listeners.Append(new Failures);
    const bool passed = RUN_ALL_TESTS() == 0 && unit.successful_test_count() == 1;
    return passed && unit.skipped_test_count() == 0 ? 0 : 1;
}

bool run(const std::string &name)
{
    const int status = run_in_device([&name] { return run_alone(name); });
    printf("%s %s\n", status == 0 ? "passed" : "FAILED", name.c_str());
    if (status > 1)
        printf("       ended with status %d\n", status);
    return status == 0;
}

} // namespace

int main(int argc, char **argv)
{
    testing::InitGoogleMock(&argc, argv);
    if (GTEST_FLAG_GET(list_tests))
        return RUN_ALL_TESTS();

    const auto names = selected_tests();
    size_t passed = 0;
    for (const auto &name : names)
        passed += run(name) ? 1 : 0;
    printf("%zu of %zu passed\n", passed, names.size());
    return !names.empty() && passed == names.size() ? 0 : 1;
}

#include <zorv/exec.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <memory>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

#include "support/device.h"

namespace {

using Capture = Device;

std::string get_output(const char *command, size_t size)
{
    std::string buffer(size, '#');
    const int length = popen_get_output(command, buffer.data(), size);
    if (size == 0 || length < 0 || static_cast<size_t>(length) >= size ||
        buffer[static_cast<size_t>(length)] != '\0')
        return "result " + std::to_string(length);
    return buffer.substr(0, static_cast<size_t>(length));
}

std::string alloc_output(const char *command, size_t max_size)
{
    const std::unique_ptr<char, decltype(&free)> text(popen_alloc_output(command, max_size), free);
    return text ? text.get() : "(null)";
}

// The numbers from 1 on, so that a piece out of place shows.
std::string numbers(size_t length)
{
    std::string text;
    for (int i = 1; text.size() < length; ++i)
        text += std::to_string(i) + "\n";
    return text.substr(0, length);
}

TEST_F(Capture, OutputIsCutToTheBuffer)
{
    constexpr size_t kLengths[] = {0, 1, 99, 1022, 1023, 1024, 1025, 2048, 4000, 4096, 5000, 70000};
    constexpr size_t kSizes[] = {1, 10, 100, 1023, 1024, 1025, 2048, 4096, 5000, 65536, 100000};
    const int descriptors = open_descriptors();
    for (const size_t length : kLengths) {
        const std::string whole = numbers(length);
        file("/tmp/output", whole);
        for (const size_t size : kSizes) {
            SCOPED_TRACE(testing::Message() << length << " into " << size);
            EXPECT_EQ(get_output("cat /tmp/output", size), whole.substr(0, size - 1));
            EXPECT_EQ(alloc_output("cat /tmp/output", size), whole.substr(0, size - 1));
        }
        EXPECT_EQ(alloc_output("cat /tmp/output", SIZE_MAX), whole);
    }
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_EQ(wait(nullptr), -1); // no child is left
}

TEST_F(Capture, OddOutputs)
{
    EXPECT_EQ(get_output("exec >&-", 10), "");
    EXPECT_EQ(alloc_output("exec >&-", 10), "");
    EXPECT_EQ(get_output("printf 'a\\0b'", 10), std::string("a\0b", 3));
    EXPECT_EQ(get_output("echo errors >/dev/stderr 2>&1; echo a", 10), "a\n");
    EXPECT_EQ(get_output("true", 0), "result 0");
    EXPECT_EQ(popen_get_output("true", nullptr, 0), 0);
    EXPECT_EQ(alloc_output("true", 0), "");
    EXPECT_THAT(logged(), IsEmpty());

    EXPECT_EQ(get_output("exec yes", 9), "y\ny\ny\ny\n"); // endless
    EXPECT_EQ(alloc_output("exec yes", 9), "y\ny\ny\ny\n");
    EXPECT_THAT(logged(),
                ElementsAre("[warn ] libzorv_exec.popen_get_output(): [exec yes] -> [13]",
                            "[warn ] libzorv_exec.popen_alloc_output(): 'exec yes' returned "
                            "rc=13"));
}

TEST_F(Capture, TheStatusIsLoggedAndChangesNothing)
{
    libzorv_log_level = 2;
    EXPECT_EQ(get_output("echo a; exit 1", 10), "a\n");
    EXPECT_EQ(alloc_output("echo a; exit 3", 10), "a\n");
    EXPECT_THAT(
        logged(),
        ElementsAre("[warn ] libzorv_exec.popen_get_output(): [echo a; exit 1] -> [256]",
                    "[warn ] libzorv_exec.popen_alloc_output(): 'echo a; exit 3' returned rc=768"));

    signal(SIGCHLD, SIG_IGN); // the kernel reaps, and pclose() finds nobody
    EXPECT_EQ(get_output("echo a", 10), "a\n");
    EXPECT_EQ(alloc_output("echo a", 10), "a\n");
    EXPECT_THAT(logged(), ElementsAre("[warn ] libzorv_exec.popen_get_output(): error on pclose "
                                      "for[echo a] errno[No child processes]",
                                      "[error] libzorv_exec.popen_alloc_output(): pclose failed "
                                      "on 'echo a': No child processes"));

    libzorv_log_level = 1;
    EXPECT_EQ(get_output("exit 1", 10), "");
    EXPECT_EQ(alloc_output("exit 1", 10), "");
    EXPECT_THAT(logged(), ElementsAre(testing::HasSubstr("pclose failed on 'exit 1'")));
}

TEST_F(Capture, ACommandThatCannotBeStarted)
{
    char buffer[] = "kept";
    limit_descriptors(3);
    EXPECT_EQ(popen_get_output("true", buffer, sizeof buffer), -1);
    EXPECT_STREQ(buffer, "kept");
    EXPECT_EQ(popen_alloc_output("true", 10), nullptr);
    EXPECT_EQ(popen_alloc_output(nullptr, 10), nullptr);
    limit_descriptors();
    EXPECT_THAT(logged(),
                ElementsAre("[error] libzorv_exec.popen_get_output(): get_output: popen[true] -> "
                            "NULL",
                            "[error] libzorv_exec.popen_alloc_output(): open failed on 'true': "
                            "Too many open files",
                            "[error] libzorv_exec.popen_alloc_output(): open failed on '': "
                            "Invalid argument"));
}

// The command interrupts the reader, sooner or later while it waits for output.
TEST_F(Capture, AReadThatFailsEndsTheOutput)
{
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, nullptr);
    const std::string text = alloc_output("while kill -USR1 $PPID; do echo; done", SIZE_MAX);
    EXPECT_EQ(text, std::string(text.size(), '\n'));
    EXPECT_THAT(logged(), ElementsAre("[error] libzorv_exec.popen_alloc_output(): Failed to read "
                                      "from stream, command='while kill -USR1 $PPID; do echo; "
                                      "done'",
                                      testing::HasSubstr("returned rc=13")));
}

} // namespace

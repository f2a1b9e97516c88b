#include <zorv/exec.h>

#include <csignal>
#include <memory>
#include <string>

#include <sys/wait.h>

#include "support/device.h"

namespace {

using Capture = Device;
using Owned = std::unique_ptr<char, decltype(&free)>;

// What both functions hand out, the first with its length.
std::string captured(const char *command, size_t size)
{
    std::string buffer(size, '#');
    const int length = popen_get_output(command, buffer.data(), size);
    const auto used = static_cast<size_t>(std::max(length, 0));
    EXPECT_TRUE(used >= size || buffer[used] == (length < 0 ? '#' : '\0'));
    const Owned text(popen_alloc_output(command, size), free);
    return std::to_string(length) + " " + buffer.c_str() + "|" + (text ? text.get() : "(null)");
}

TEST_F(Capture, OutputIsCutToTheBuffer)
{
    std::string numbers; // so that a piece out of place shows
    for (int i = 1; numbers.size() < 70000; ++i)
        numbers += std::to_string(i) + "\n";
    const int descriptors = open_descriptors();
    for (const size_t length : {0, 1023, 1024, 1025, 70000}) {
        const std::string whole = numbers.substr(0, length);
        file("/tmp/output", whole);
        for (const size_t size : {1, 10, 1023, 1024, 1025, 2049, 100000}) {
            const std::string cut = whole.substr(0, size - 1);
            EXPECT_EQ(captured("cat /tmp/output", size),
                      std::to_string(cut.size()) + " " + cut + "|" + cut);
        }
        EXPECT_EQ(Owned(popen_alloc_output("cat /tmp/output", SIZE_MAX), free).get(), whole);
    }
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_EQ(wait(nullptr), -1); // no child is left
}

TEST_F(Capture, TheStatusIsLoggedAndChangesNothing)
{
    const std::string get = " libzorv_exec.popen_get_output(): ";
    const std::string alloc = " libzorv_exec.popen_alloc_output(): ";
    const std::tuple<const char *, size_t, const char *, std::vector<std::string>> rows[] = {
        {"exec >&-", 10, "0 |", {}},
        {"printf 'a\\0b'", 10, "3 a|a", {}},
        {"true", 0, "0 |", {}},
        {"exec yes",
         5,
         "4 y\ny\n|y\ny\n", // endless
         {"[warn ]" + get + "[exec yes] -> [13]", "[warn ]" + alloc + "'exec yes' returned rc=13"}},
        {"echo a; exit 3",
         10,
         "2 a\n|a\n",
         {"[warn ]" + get + "[echo a; exit 3] -> [768]",
          "[warn ]" + alloc + "'echo a; exit 3' returned rc=768"}},
        {nullptr,
         10,
         "-1 ##########|(null)",
         {"[error]" + get + "get_output: popen[] -> NULL",
          "[error]" + alloc + "open failed on '': Invalid argument"}},
    };
    libzorv_log_level = 2;
    for (const auto &[command, size, want, lines] : rows) {
        EXPECT_EQ(captured(command, size), want);
        EXPECT_EQ(logged(), lines) << want;
    }
    signal(SIGCHLD, SIG_IGN); // the kernel reaps, and pclose() finds nobody
    EXPECT_EQ(captured("exit 1", 10), "0 |");
    EXPECT_THAT(logged(),
                ElementsAre("[warn ]" + get +
                                "error on pclose for[exit 1] errno[No child "
                                "processes]",
                            "[error]" + alloc + "pclose failed on 'exit 1': No child processes"));
}

} // namespace



#include "support/device.h"

using Capture = Device;
using Owned = std::unique_ptr<char, decltype(&free)>;

// What both functions hand out, the first with its length.
static std::string captured(const char *command, size_t size)
{
    std::string bytes(size, '#');
    const int length = popen_get_output(command, bytes.data(), size);
    const Owned text(popen_alloc_output(command, size), free);
    return std::to_string(length) + " " + bytes.c_str() + "|" + (text ? text.get() : "(null)");
}

TEST_F(Capture, TheStatusIsLoggedAndChangesNothing)
{
    // Numbers, so that a piece out of place shows.
    must_run("seq 100000 119999 | head -c 70003 >/tmp/output");
    const std::string whole = read("/tmp/output").substr(0, 69999);
    const std::string get = " libzorv_exec.popen_get_output(): ";
    const std::string alloc = " libzorv_exec.popen_alloc_output(): ";
    const std::tuple<const char *, size_t, std::string, std::vector<std::string>> rows[] = {
        {"printf 'a\\0b'", 10, "3 a|a", {}},
        {"true", 0, "0 |", {}},
        {"cat /tmp/output", 70000, "69999 " + whole + "|" + whole, {}},
        {"exec yes",
         5,
         "4 y\ny\n|y\ny\n", // endless
         {"[warn ]" + get + "[exec yes] -> [13]", "[warn ]" + alloc + "'exec yes' returned rc=13"}},
        {nullptr,
         10,
         "-1 ##########|(null)",
         {"[error]" + get + "get_output: popen[] -> NULL",
          "[error]" + alloc + "open failed on '': Invalid argument"}},
    };
    libzorv_log_level = 2;
    signal(SIGPIPE, SIG_IGN); // the command has it as a shell would
    for (const auto &[command, size, want, lines] : rows) {
        EXPECT_EQ(captured(command, size), want);
        EXPECT_EQ(logged(), lines) << want;
    }
    struct sigaction action = {}; // signals cut nothing
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, nullptr);
    ualarm(2000, 2000);
    EXPECT_EQ(captured("echo a; sleep 0.1; echo b", 10), "4 a\nb\n|a\nb\n");
    ualarm(0, 0);
    signal(SIGCHLD, SIG_IGN); // the kernel reaps, and pclose() finds nobody
    EXPECT_EQ(captured("exit 1", 10), "0 |");
    EXPECT_THAT(
        logged(),
        ElementsAre("[warn ]" + get + "error on pclose for[exit 1] errno[No child processes]",
                    "[error]" + alloc + "pclose failed on 'exit 1': No child processes"));
}


#include <sys/syscall.h>

#include "support/device.h"
#include "support/json.h"

using testing::EndsWith;
using Log = Device;

static size_t g_longest_write; // of the library and the test, since it was last cleared

// The program's part of a line, which logged() takes off.
static std::string prefix()
{
    return program_invocation_short_name + ("[" + std::to_string(getpid())) + "]: ";
}

extern "C" ssize_t write(int fd, const void *bytes, size_t size)
{
    g_longest_write = std::max(g_longest_write, size);
    return syscall(SYS_write, fd, bytes, size);
}

TEST_F(Log, GoesToTheKernelLogUntilADaemonIsThere)
{
    libzorv_log_use_syslog = 1;
    must_run("rm -f /dev/kmsg; mkfifo /dev/kmsg");
    const int fifo = open("/dev/kmsg", O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    const std::string head = prefix() + "[debug] cfg.f(): ";
    char data[6000];
    // The kernel makes a record of each write, and refuses one beyond 976 bytes.
    for (const size_t length : {976U, 977U, 1952U, 5000U}) { // of the whole line
        const std::string message(length - head.size() - 1, 'x');
        g_longest_write = 0;
        libzorv_log(9, "cfg", "f", "%s", message.c_str());
        EXPECT_EQ(std::string(data, static_cast<size_t>(::read(fifo, data, sizeof data))),
                  head + message + "\n");
        EXPECT_EQ(::read(fifo, data, sizeof data), 0) << "the device is still open";
        EXPECT_EQ(g_longest_write, 976) << length;
    }

    start_syslog();
    errno = EBUSY;
    libzorv_log(3, "cfg", "f", "%d", 143);
    EXPECT_EQ(errno, EBUSY);
    // Priority, time and tag are the C library's.
    EXPECT_THAT(syslogged(),
                testing::AllOf(StartsWith("<11>"), EndsWith(": " + prefix() + "cfg.f(): 143\n")));
    libzorv_log(6, "cfg", "f", "%s", std::string(2000, 'x').c_str());
    EXPECT_THAT(syslogged(), EndsWith(" cfg.f(): " + std::string(1023, 'x') + "\n"));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Log, AStandardErrorWithoutReaderEndsNobody)
{
    int ends[2];
    check(pipe2(ends, O_CLOEXEC), "pipe2");
    close(ends[0]);
    FILE *const old = std::exchange(stderr, fdopen(ends[1], "we"));
    setvbuf(stderr, nullptr, _IONBF, 0);
    libzorv_log(3, "m", "f", "x");
    libzorv_log(3, "m", "f", "%s", std::string(2000, 'x').c_str());
    EXPECT_TRUE(ferror(stderr));
    stderr = old;
}

TEST_F(Log, LinesAreWholeAndLabelsLineUp)
{
    std::string labels;
    for (const int level : {-5, 0, 1, 2, 3, 4, 5, 6, 7, 100}) {
        libzorv_log(level, "m", "f", ".");
        labels += logged().at(0).substr(1, 5);
    }
    EXPECT_EQ(labels, "emergemergalertcrit errorwarn noticinfo debugdebug");
    // Around the 1024 bytes of the buffer that a line is put together in.
    const size_t fixed = (prefix() + "[error] m.f(): \n").size();
    for (size_t length = 1020; length < 1030; ++length) {
        const std::string text(length - fixed, 'x');
        libzorv_log(3, "m", "f", "%s", text.c_str());
        libzorv_log(3, text.c_str(), "f", "x");
        EXPECT_THAT(logged(), ElementsAre("[error] m.f(): " + text, "[error] " + text + ".f(): x"));
    }
    unsigned char data[17] = {1, 2, 255};
    libzorv_log_hex(6, "m", "f", nullptr, -1, nullptr);
    libzorv_log_hex(6, "m", "f", data, 17, "key");
    const std::string head = "[info ] m.f(): ";
    EXPECT_THAT(logged(),
                ElementsAre(head + " - HEX((nil)) len -1", EndsWith(") len 17"),
                            head + "00000000: 01 02 ff 00 00 00 00 00 00 00 00 00 00 00 00 00",
                            head + "00000010: 00"));
}

TEST_F(Log, JsonIsNumberedByPrintedLineAndCutAtTheWidthOfASyslogLine)
{
    const std::string head = "[debug] m.f(): JSON - ", name = program_invocation_short_name;
    libzorv_log_json(7, "m", "f", nullptr, "title");
    EXPECT_THAT(logged(), ElementsAre(head + "    : title", head + "    : null data"));
    // 960 bytes, less the prefix with the program's name in it twice.
    const size_t width = 960 - (name + ": " + prefix() + "m.f(): JSON -     : ").size();
    for (const size_t length : {width, width + 1, 2 * width, 2 * width + 1}) {
        const std::string text(length - 6, 'x'), line = "    \"" + text + "\"";
        std::vector<std::string> expected = {head + "   1: ["};
        for (size_t at = 0; at < length; at += width)
            expected.push_back(head + (at == 0 ? "   2: " : "    : ") + line.substr(at, width));
        expected.push_back(head + "   3: ]");
        libzorv_log_json(7, "m", "f", Json(json_pack("[s]", text.c_str())).get(), nullptr);
        EXPECT_EQ(logged(), expected) << length;
    }
    const Json empty(json_array()); // no room at all: one character a line
    libzorv_log_json(7, std::string(2000, 'm').c_str(), "f", empty.get(), nullptr);
    EXPECT_THAT(logged(), ElementsAre(EndsWith("JSON -    1: ["), EndsWith("JSON -     : ]")));
}

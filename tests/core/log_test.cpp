#include <zorv/log.h>

#include <cerrno>

#include <fcntl.h>
#include <jansson.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "core/log_gate.h"
#include "support/allocation.h"
#include "support/device.h"

using testing::EndsWith;
using testing::SizeIs;

namespace {

constexpr char kModule[] = "cfg";

size_t g_longest_write; // of the library and the test, since it was last cleared

// The program's part of a line, which logged() takes off.
std::string prefix()
{
    return program_invocation_short_name + ("[" + std::to_string(getpid())) + "]: ";
}

using Log = Device;

} // namespace

extern "C" ssize_t write(int fd, const void *bytes, size_t size)
{
    g_longest_write = std::max(g_longest_write, size);
    return syscall(SYS_write, fd, bytes, size);
}

TEST_F(Log, GoesToSyslogWhileADaemonIsThere)
{
    start_syslog();
    errno = EBUSY;
    libzorv_log(3, "cfg", "parse_stream", "%d: malloc(%d) failed", 143, 12);
    EXPECT_EQ(errno, EBUSY);
    const std::string line = syslogged(); // priority, time and tag are the C library's
    EXPECT_THAT(line, StartsWith("<11>"));
    EXPECT_THAT(line, EndsWith(": " + prefix() + "cfg.parse_stream(): 143: malloc(12) failed\n"));

    libzorv_log(6, "cfg", "f", "%s", std::string(2000, 'x').c_str());
    EXPECT_THAT(syslogged(), EndsWith(" cfg.f(): " + std::string(1023, 'x') + "\n"));
    EXPECT_THAT(logged(), IsEmpty());

    libzorv_log_use_syslog = 0;
    libzorv_log(6, "cfg", "f", "elsewhere");
    EXPECT_EQ(syslogged(), "");
    EXPECT_THAT(logged(), ElementsAre("[info ] cfg.f(): elsewhere"));
}

TEST_F(Log, GoesToTheKernelLogWithoutADaemon)
{
    libzorv_log_use_syslog = 1;
    libzorv_log(4, "cfg", "f", "%d", 1);
    EXPECT_EQ(read("/dev/kmsg"), prefix() + "[warn ] cfg.f(): 1\n");
    remove("/dev/kmsg");

    // The kernel makes a record of each write, and refuses one beyond 976 bytes.
    ASSERT_EQ(mkfifo("/dev/kmsg", 0600), 0);
    const int fifo = open("/dev/kmsg", O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    const size_t fixed = (prefix() + "[debug] cfg.f(): \n").size();
    char data[6000];
    errno = EBUSY;
    for (const size_t length : {1U, 976U, 977U, 1024U, 1952U, 5000U}) { // of the whole line
        SCOPED_TRACE(length);
        const std::string message(length - std::min(length, fixed), 'x');
        g_longest_write = 0;
        libzorv_log(9, "cfg", "f", "%s", message.c_str());
        const std::string expected = prefix() + "[debug] cfg.f(): " + message + "\n";
        EXPECT_EQ(errno, EBUSY);
        EXPECT_EQ(std::string(data, static_cast<size_t>(::read(fifo, data, sizeof data))),
                  expected);
        EXPECT_EQ(::read(fifo, data, sizeof data), 0) << "the device is still open";
        EXPECT_EQ(g_longest_write, std::min<size_t>(expected.size(), 976));
        errno = EBUSY;
    }
    EXPECT_THAT(logged(), IsEmpty());
    close(fifo);
}

TEST_F(Log, FallsBackToStandardError)
{
    must_run("mkdir /dev/kmsg"); // cannot be opened for writing
    libzorv_log_use_syslog = 1;
    errno = EBUSY;
    libzorv_log(0, "cfg", "f", "%s", "no kernel log");
    EXPECT_EQ(errno, EBUSY);
    EXPECT_THAT(logged(), ElementsAre("[emerg] cfg.f(): no kernel log"));
}

TEST_F(Log, LabelsLineUpAndLevelsAreKeptInRange)
{
    for (const int level : {-5, 0, 1, 2, 3, 4, 5, 6, 7, 100})
        libzorv_log(level, "m", "f", ".");
    EXPECT_THAT(logged(), ElementsAre("[emerg] m.f(): .", "[emerg] m.f(): .", "[alert] m.f(): .",
                                      "[crit ] m.f(): .", "[error] m.f(): .", "[warn ] m.f(): .",
                                      "[notic] m.f(): .", "[info ] m.f(): .", "[debug] m.f(): .",
                                      "[debug] m.f(): ."));
}

TEST_F(Log, NoLengthLosesACharacterOfAStreamLine)
{
    // Around the 1024 bytes of the buffer that a line is put together in.
    const auto fixed = static_cast<int>((prefix() + "[error] m.f(): \n").size());
    for (int length = 1020 - fixed; length < 1030 - fixed; ++length) {
        const std::string text(static_cast<size_t>(length), 'x');
        libzorv_log(3, "m", "f", "%s", text.c_str());
        EXPECT_THAT(logged(), ElementsAre("[error] m.f(): " + text));
    }
    const std::string module(2000, 'm');
    libzorv_log(3, module.c_str(), "f", "end");
    EXPECT_THAT(logged(), ElementsAre("[error] " + module + ".f(): end"));
}

TEST_F(Log, AllocatesNothing)
{
    start_syslog();
    libzorv_log(3, "m", "f", "the C library sets its own syslog state up once");
    const std::string text(5000, 'x');
    for (const int use_syslog : {1, 0}) {
        libzorv_log_use_syslog = use_syslog;
        const long before = allocations();
        libzorv_log(3, "m", "f", "%s", text.c_str());
        EXPECT_EQ(allocations(), before);
    }
}

TEST_F(Log, AClosedGateEvaluatesNothing)
{
    constexpr struct {
        int level;
        int evaluated;
    } kRows[] = {{0, 0}, {1, 1}, {2, 2}, {3, 2}, {4, 3}, {7, 3}, {8, 4}, {15, 4}, {16, 5}};
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.level);
        libzorv_log_level = row.level;
        int evaluated = 0;
        log_error("%d", ++evaluated);
        log_warning("%d", ++evaluated);
        log_info("%d", ++evaluated);
        log_debug("%d", ++evaluated);
        log_verbose("%d", ++evaluated);
        EXPECT_EQ(evaluated, row.evaluated);
        EXPECT_THAT(logged(), SizeIs(static_cast<size_t>(row.evaluated)));
    }
    libzorv_log_level = 16;
    log_verbose("%s", "last");
    EXPECT_THAT(logged(), ElementsAre("[debug] cfg.TestBody(): last"));
}

TEST_F(Log, JsonIsNumberedByPrintedLine)
{
    json_t *json = json_pack("{s:i, s:[]}", "a", 1, "b");
    libzorv_log_json(7, "m", "f", json, "title");
    libzorv_log_json(7, "m", "f", nullptr, nullptr);
    json_decref(json);
    json_t *text = json_string("neither object nor array: it cannot be dumped");
    libzorv_log_json(7, "m", "f", text, "title");
    json_decref(text);
    EXPECT_THAT(logged(), ElementsAre("[debug] m.f(): JSON -     : title",         //
                                      "[debug] m.f(): JSON -    1: {",             //
                                      "[debug] m.f(): JSON -    2:     \"a\": 1,", //
                                      "[debug] m.f(): JSON -    3:     \"b\": []", //
                                      "[debug] m.f(): JSON -    4: }",             //
                                      "[debug] m.f(): JSON -     : null data",     //
                                      "[debug] m.f(): JSON -     : title",         //
                                      "[debug] m.f(): JSON -     : null data"));
}

TEST_F(Log, JsonLinesAreCutAtTheWidthOfASyslogLine)
{
    // 960 bytes, less the prefix with the program's name in it twice.
    const std::string name = program_invocation_short_name;
    const size_t width = 960 - (name + ": " + prefix() + "m.f(): JSON -     : ").size();
    const std::string numbered = "[debug] m.f(): JSON -    2: ";
    const std::string continued = "[debug] m.f(): JSON -     : ";
    const std::string quote = "    \"";
    for (const int more : {-1, 0, 1, static_cast<int>(width), static_cast<int>(width) + 1}) {
        SCOPED_TRACE(more);
        const auto length = width + static_cast<size_t>(more); // of the second line
        const std::string text(length - quote.size() - 1, 'x');
        json_t *json = json_pack("[s]", text.c_str());
        libzorv_log_json(7, "m", "f", json, nullptr);
        json_decref(json);

        const std::string line = quote + text + "\"";
        std::vector<std::string> expected = {"[debug] m.f(): JSON -    1: ["};
        for (size_t at = 0; at < line.size(); at += width)
            expected.push_back((at == 0 ? numbered : continued) + line.substr(at, width));
        expected.emplace_back("[debug] m.f(): JSON -    3: ]");
        EXPECT_EQ(logged(), expected);
    }
    const std::string endless(2000, 'm'); // no room at all: one character a line
    json_t *json = json_pack("[]");
    libzorv_log_json(7, endless.c_str(), "f", json, nullptr);
    json_decref(json);
    EXPECT_THAT(logged(), ElementsAre(EndsWith("JSON -    1: ["), EndsWith("JSON -     : ]")));
}

TEST_F(Log, HexRowsHoldSixteenBytes)
{
    constexpr char kRow[] =
        "[info ] m.f(): 00000000: 00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f";
    const unsigned char data[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 255};
    const auto header = [&data](const std::string &title, int length) {
        char text[100];
        snprintf(text, sizeof text, " - HEX(%p) len %d", static_cast<const void *>(data), length);
        return "[info ] m.f(): " + title + text;
    };
    for (const int length : {-1, 0, 1, 16, 17})
        libzorv_log_hex(6, "m", "f", data, length, length == 16 ? nullptr : "key");
    EXPECT_THAT(logged(), ElementsAre(header("key", -1),                               //
                                      header("key", 0),                                //
                                      header("key", 1), "[info ] m.f(): 00000000: 00", //
                                      header("", 16), kRow,                            //
                                      header("key", 17), kRow, "[info ] m.f(): 00000010: ff"));
}

#include <zorv/log.h>

#include <cerrno>

#include <fcntl.h>
#include <jansson.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "core/log_gate.h"
#include "support/device.h"

using testing::EndsWith;
using Log = Device;

namespace {

constexpr char kModule[] = "cfg";

size_t g_longest_write; // of the library and the test, since it was last cleared

// The program's part of a line, which logged() takes off.
std::string prefix()
{
    return program_invocation_short_name + ("[" + std::to_string(getpid())) + "]: ";
}

std::vector<std::string> logged_json(const char *module, const std::string &text, const char *title)
{
    json_t *const json = json_loads(text.c_str(), JSON_DECODE_ANY, nullptr);
    libzorv_log_json(7, module, "f", json, title);
    json_decref(json);
    return Device::logged();
}

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
    libzorv_log(3, "cfg", "f", "%d", 143);
    EXPECT_EQ(errno, EBUSY);
    const std::string line = syslogged(); // priority, time and tag are the C library's
    EXPECT_THAT(line, StartsWith("<11>"));
    EXPECT_THAT(line, EndsWith(": " + prefix() + "cfg.f(): 143\n"));
    libzorv_log(6, "cfg", "f", "%s", std::string(2000, 'x').c_str());
    EXPECT_THAT(syslogged(), EndsWith(" cfg.f(): " + std::string(1023, 'x') + "\n"));
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
    ASSERT_EQ(mkfifo("/dev/kmsg", 0600), 0);
    const int fifo = open("/dev/kmsg", O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    const std::string head = prefix() + "[debug] cfg.f(): ";
    char data[6000];
    // The kernel makes a record of each write, and refuses one beyond 976 bytes.
    for (const size_t length : {976U, 977U, 1024U, 1952U, 5000U}) { // of the whole line
        const std::string message(length - head.size() - 1, 'x');
        g_longest_write = 0;
        libzorv_log(9, "cfg", "f", "%s", message.c_str());
        EXPECT_EQ(std::string(data, static_cast<size_t>(::read(fifo, data, sizeof data))),
                  head + message + "\n");
        EXPECT_EQ(::read(fifo, data, sizeof data), 0) << "the device is still open";
        EXPECT_EQ(g_longest_write, 976) << length;
    }
    remove("/dev/kmsg");
    must_run("mkdir /dev/kmsg"); // cannot be opened for writing
    libzorv_log(0, "cfg", "f", "%s", "no kernel log");
    EXPECT_THAT(logged(), ElementsAre("[emerg] cfg.f(): no kernel log"));
}

TEST_F(Log, LinesAreWholeAndLabelsLineUp)
{
    for (const int level : {-5, 0, 1, 2, 3, 4, 5, 6, 7, 100})
        libzorv_log(level, "m", "f", ".");
    EXPECT_THAT(logged(), ElementsAre("[emerg] m.f(): .", "[emerg] m.f(): .", "[alert] m.f(): .",
                                      "[crit ] m.f(): .", "[error] m.f(): .", "[warn ] m.f(): .",
                                      "[notic] m.f(): .", "[info ] m.f(): .", "[debug] m.f(): .",
                                      "[debug] m.f(): ."));
    // Around the 1024 bytes of the buffer that a line is put together in.
    const size_t fixed = (prefix() + "[error] m.f(): \n").size();
    for (size_t length = 1020; length < 1030; ++length) {
        const std::string text(length - fixed, 'x');
        libzorv_log(3, "m", "f", "%s", text.c_str());
        EXPECT_THAT(logged(), ElementsAre("[error] m.f(): " + text));
    }
    const std::string module(2000, 'm');
    libzorv_log(3, module.c_str(), "f", "end");
    EXPECT_THAT(logged(), ElementsAre("[error] " + module + ".f(): end"));

    const unsigned char data[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 255};
    char place[32];
    snprintf(place, sizeof place, " - HEX(%p) len ", static_cast<const void *>(data));
    for (const int length : {-1, 1, 17})
        libzorv_log_hex(6, "m", "f", data, length, length == 1 ? nullptr : "key");
    const std::string head = "[info ] m.f(): ", titled = head + "key" + place;
    EXPECT_THAT(logged(),
                ElementsAre(titled + "-1", head + place + "1", head + "00000000: 00", titled + "17",
                            head + "00000000: 00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f",
                            head + "00000010: ff"));
}

TEST_F(Log, AClosedGateEvaluatesNothing)
{
    std::string evaluated; // by level
    for (const int level : {0, 1, 2, 3, 4, 7, 8, 15, 16}) {
        libzorv_log_level = level;
        log_error("%d", (evaluated += "e", level));
        log_warning("%d", (evaluated += "w", level));
        log_info("%d", (evaluated += "i", level));
        log_debug("%d", (evaluated += "d", level));
        log_verbose("%d", (evaluated += "v", level));
        evaluated += " ";
    }
    EXPECT_EQ(evaluated, " e ew ew ewi ewi ewid ewid ewidv ");
    const std::string at = " cfg.TestBody(): 16";
    const std::vector<std::string> lines = logged();
    EXPECT_THAT(std::vector(lines.end() - 5, lines.end()),
                ElementsAre("[error]" + at, "[warn ]" + at, "[info ]" + at, "[debug]" + at,
                            "[debug]" + at));
}

TEST_F(Log, JsonIsNumberedByPrintedLineAndCutAtTheWidthOfASyslogLine)
{
    const std::string head = "[debug] m.f(): JSON - ";
    EXPECT_THAT(logged_json("m", "", nullptr), ElementsAre(head + "    : null data"));
    EXPECT_THAT(logged_json("m", "\"neither object nor array: it cannot be dumped\"", "title"),
                ElementsAre(head + "    : title", head + "    : null data"));
    // 960 bytes, less the prefix with the program's name in it twice.
    const std::string name = program_invocation_short_name;
    const size_t width = 960 - (name + ": " + prefix() + "m.f(): JSON -     : ").size();
    for (const size_t length : {width, width + 1, 2 * width, 2 * width + 1}) {
        const std::string line = "    \"" + std::string(length - 6, 'x') + "\"";
        std::vector<std::string> expected = {head + "   1: ["};
        for (size_t at = 0; at < length; at += width)
            expected.push_back(head + (at == 0 ? "   2: " : "    : ") + line.substr(at, width));
        expected.push_back(head + "   3: ]");
        EXPECT_EQ(logged_json("m", "[" + line + "]", nullptr), expected) << length;
    }
    const std::string endless(2000, 'm'); // no room at all: one character a line
    EXPECT_THAT(logged_json(endless.c_str(), "[]", nullptr),
                ElementsAre(EndsWith("JSON -    1: ["), EndsWith("JSON -     : ]")));
}

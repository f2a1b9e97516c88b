#include <zorv/file.h>

#include <climits>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/device.h"

class Files : public Device {
protected:
    // What stands in the file that the function under test reads.
    static const char *holding(std::string_view text)
    {
        file("/tmp/state", text);
        return "/tmp/state";
    }
};

TEST_F(Files, PathsAreFormattedUpToTheKernelsLength)
{
    FILE *stream = fopen_format("we", "/tmp/%s.%d", "state", 7);
    ASSERT_NE(stream, nullptr);
    fclose(stream);
    EXPECT_TRUE(exists("/tmp/state.7"));
    const std::string slashes(4095 - strlen("/tmp/state.7"), '/');
    stream = fopen_format("re", "%s%s", slashes.c_str(), "/tmp/state.7");
    ASSERT_NE(stream, nullptr);
    fclose(stream);
    const std::string endless(16 << 20, '/'); // more than a stack holds
    EXPECT_EQ(fopen_format("re", "%s", endless.c_str()), nullptr);
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_EQ(fopen_format("re", "/tmp/%s", "missing"), nullptr);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(Files, AFirstLineIsReadWithoutItsNewline)
{
    using namespace std::literals;
    const struct {
        std::string_view text;
        int size;
        const char *line;
    } rows[] = {
        {"one\ntwo\n", 16, "one"}, {"one", 16, "one"}, {"\n", 16, ""},
        {"one\r\n", 16, "one\r"},  {"one\n", 3, "on"}, {"one\n", 1, ""},
        {"o\0ne\n"sv, 16, "o"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text);
        char line[16] = "kept";
        EXPECT_EQ(fsreadline(holding(row.text), line, row.size), 0);
        EXPECT_STREQ(line, row.line);
        EXPECT_STREQ(freadlineat(AT_FDCWD, "/tmp/state", line, row.size, "none"), row.line);
    }
}

TEST_F(Files, ALineThatCannotBeReadIsAnErrorNumber)
{
    char line[16] = "kept";
    EXPECT_EQ(fsreadline(nullptr, line, sizeof line), -EINVAL);
    EXPECT_EQ(fsreadline("/tmp/missing", line, sizeof line), -ENOENT);
    EXPECT_EQ(fsreadline("/tmp", line, sizeof line), -EISDIR);
    errno = 0;
    EXPECT_EQ(fsreadline(holding(""), line, sizeof line), 0); // empty, and nothing failed before
    EXPECT_EQ(freadline(holding(""), line, sizeof line, "none"), line);
    errno = EIO;
    EXPECT_EQ(fsreadline(holding(""), line, sizeof line), -EIO);
    errno = 0;
    EXPECT_EQ(fsreadline(holding("x"), line, 0), 0);
    EXPECT_EQ(fsreadline(holding("x"), line, -1), 0);
    EXPECT_STREQ(line, "kept");
}

TEST_F(Files, ADefaultStandsInForALine)
{
    char line[8];
    EXPECT_STREQ(freadline("/tmp/missing", line, sizeof line, "none"), "none");
    EXPECT_STREQ(freadline("/tmp/missing", line, sizeof line, "far too long"), "far too");
    EXPECT_STREQ(freadlineat(AT_FDCWD, "/tmp/missing", line, sizeof line, "none"), "none");
    EXPECT_STREQ(freadlineat(AT_FDCWD, holding(""), line, sizeof line, "empty"), "empty");
    EXPECT_STREQ(freadlineat(AT_FDCWD, "/tmp", line, sizeof line, "folder"), "folder");
    EXPECT_STREQ(freadvalue(nullptr, "key", line, sizeof line, "none"), "none");
    EXPECT_STREQ(freadvalue("/tmp/state", nullptr, line, sizeof line, "none"), "none");
    EXPECT_THAT(logged(), ElementsAre());
    EXPECT_STREQ(freadline("/tmp/missing", line, sizeof line, nullptr), "");
    EXPECT_STREQ(freadlineat(AT_FDCWD, "/tmp/missing", line, sizeof line, nullptr), "");
    EXPECT_STREQ(freadvalue("/tmp/missing", "key", line, sizeof line, nullptr), "");
    EXPECT_THAT(logged(),
                ElementsAre("[error] libzorv_util.freadline(): NULL pointer for default value",
                            "[error] libzorv_util.freadlineat(): NULL pointer for default value",
                            "[error] libzorv_util.freadvalue(): NULL pointer for default value"));
    libzorv_log_level = 16;
    EXPECT_STREQ(freadline("/tmp/missing", line, sizeof line, "none"), "none");
    EXPECT_THAT(logged(),
                ElementsAre("[debug] libzorv_util.freadline(): fsreadline returned error code -2"));
    line[0] = 'k';
    freadline("/tmp/missing", line, 0, "none");
    freadline("/tmp/missing", line, INT_MIN, "none");
    freadvalue("/tmp/missing", "key", line, 0, "none");
    EXPECT_EQ(line[0], 'k');
}

TEST_F(Files, ALineIsFoundByATextInIt)
{
    const std::string far_away(300, '.');
    holding("eth0: up\nbr0: down\n" + far_away + "wan0: up\n");
    char line[512];
    EXPECT_EQ(fsreadlinebykey("/tmp/state", "br0", line, sizeof line), 0);
    EXPECT_STREQ(line, "br0: down\n");
    EXPECT_EQ(fsreadlinebykey("/tmp/state", ": ", line, 4), 0);
    EXPECT_STREQ(line, "eth");
    // 254 characters make a piece, so the last one begins behind that many.
    EXPECT_EQ(fsreadlinebykey("/tmp/state", "wan0", line, sizeof line), 0);
    EXPECT_EQ(line, std::string(300 - 254, '.') + "wan0: up\n");
    line[3] = 'k';
    EXPECT_EQ(fsreadlinebykey("/tmp/state", "WAN0", line, 4), -1);
    EXPECT_EQ(line[3], '\0');
    EXPECT_EQ(fsreadlinebykey("/tmp/missing", "br0", line, sizeof line), -1);
    EXPECT_EQ(fsreadlinebykey(nullptr, "br0", line, sizeof line), -1);
    EXPECT_EQ(fsreadlinebykey("/tmp/state", nullptr, line, sizeof line), -1);
    EXPECT_EQ(fsreadlinebykey("/tmp/state", "br0", nullptr, sizeof line), -1);
    EXPECT_EQ(fsreadlinebykey("/tmp/state", "br0", line, 0), -1);
}

TEST_F(Files, AValueIsFoundByItsKey)
{
    holding("MemTotal:  1024 kB\nmode=ap\nempty\nempty=\n\t late =\t= 7\r\nmode=sta\n"
            "modes=x\nempty = found\n" +
            std::string(254, ' ') + "tail=end");
    const struct {
        const char *key, *value;
    } rows[] = {
        {"MemTotal:", "1024"}, {"MemTotal", "none"}, {"mode", "ap"},  {"MODE", "none"},
        {"empty", "found"},    {"late", "7"},        {"tail", "end"}, {"", "none"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.key);
        char value[16];
        EXPECT_STREQ(freadvalue("/tmp/state", row.key, value, sizeof value, "none"), row.value);
    }
    char value[3];
    EXPECT_STREQ(freadvalue("/tmp/state", "MemTotal:", value, sizeof value, "none"), "10");
}

TEST_F(Files, NumbersAreReadFromTheFirstFifteenCharacters)
{
    const struct {
        std::string_view text;
        long base_ten, any_base;
    } rows[] = {
        {"42\n", 42, 42},
        {"abc\n", -7, -7},
        {"0x10\n", 0, 16},
        {"010\n", 10, 8},
        {"  -5 kB\n", -5, -5},
        {"12345678901234567890\n", 123456789012345, 123456789012345},
        {"                  1\n", -7, -7},
        {"", -7, -7},
        {"\n5\n", -7, -7},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text);
        holding(row.text);
        errno = 0;
        EXPECT_EQ(freadlong("/tmp/state", -7), row.base_ten);
        EXPECT_EQ(freadulong("/tmp/state", static_cast<unsigned long>(-7)),
                  static_cast<unsigned long>(row.base_ten));
        EXPECT_EQ(freadlongat(AT_FDCWD, "/tmp/state", -7), row.any_base);
        EXPECT_EQ(freadi64at(AT_FDCWD, "/tmp/state", -7), row.any_base);
    }
    EXPECT_EQ(freaddouble(holding("-2.5e3 C\n"), 1.5), -2500.0);
    EXPECT_EQ(freaddouble(holding("0.000000000000000000000000000000009\n"), 1.5), 0.0); // cut off
    EXPECT_EQ(freaddouble(holding("warm\n"), 1.5), 1.5);
    EXPECT_EQ(freaddouble(holding(""), 1.5), 1.5);
    EXPECT_EQ(freadlong("/tmp/missing", -7), -7);
    EXPECT_EQ(freaddouble(nullptr, 1.5), 1.5);
    EXPECT_EQ(freadi64at(AT_FDCWD, "/tmp/missing", INT64_MIN), INT64_MIN);
}

TEST_F(Files, AnEndlessLineIsReadOnlyAsFarAsNeeded)
{
    must_run("mknod /tmp/endless c 1 5 2>/dev/null || ln -s /dev/zero /tmp/endless");
    EXPECT_EQ(freadlong("/tmp/endless", 3), 3);
    char line[16] = "x";
    EXPECT_STREQ(freadline("/tmp/endless", line, sizeof line, "none"), "");
}

TEST_F(Files, WritingReplacesTheContent)
{
    EXPECT_EQ(fwriteline(holding("longer than what comes\n"), "%s=%d\n", "mode", 5), 7);
    EXPECT_EQ(read("/tmp/state"), "mode=5\n");
    EXPECT_EQ(fwriteline("/tmp/no/folder", "x"), -1);

    must_run("mkdir /tmp/dir");
    umask(0);
    const int dir = open("/tmp/dir", O_DIRECTORY | O_CLOEXEC);
    EXPECT_EQ(fwritelineat(dir, "text", "%s\n", "longer"), 7);
    EXPECT_EQ(fwritelineat(dir, "text", "%s\n", "new"), 4);
    EXPECT_EQ(errno, EBADF); // the second close
    EXPECT_EQ(read("/tmp/dir/text"), "new\n");
    EXPECT_EQ(fwritelongat(dir, "number", LONG_MIN), 0);
    EXPECT_EQ(read("/tmp/dir/number"), "-9223372036854775808\n");
    EXPECT_EQ(run("stat -c %a /tmp/dir/text /tmp/dir/number").output, "600\n600\n");
    EXPECT_EQ(fwritelineat(dir, "no/folder", "x"), -1);
    EXPECT_EQ(fwritelongat(-1, "number", 1), -1);
    close(dir);
}

TEST_F(Files, CountersGoUpAndDown)
{
    EXPECT_EQ(faddlong("/tmp/count", 5), 0);
    EXPECT_EQ(read("/tmp/count"), "5\n");
    EXPECT_EQ(faddlong("/tmp/count", -7), 0);
    EXPECT_EQ(read("/tmp/count"), "-2\n");
    EXPECT_EQ(faddlong("/tmp/no/folder", 1), -1);

    const int dir = open("/tmp", O_DIRECTORY | O_CLOEXEC);
    umask(0);
    EXPECT_EQ(faddlongat(dir, "new", 5), 0);
    EXPECT_EQ(run("stat -c %a /tmp/new").output, "600\n");
    const struct {
        std::string_view text;
        long delta;
        const char *sum;
    } rows[] = {
        {"0x10 and more\nlines\n", 1, "17\n"},
        {"10", -11, "-1\n"},
        {"junk\n", 3, "3\n"},
        {"", 3, "3\n"},
        {"123456789012345678\n", 1, "123456789012346\n"},
        {"1", LONG_MAX, "-9223372036854775808\n"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text);
        holding(row.text);
        EXPECT_EQ(faddlongat(dir, "state", row.delta), 0);
        EXPECT_EQ(read("/tmp/state"), row.sum);
        holding(row.text);
        EXPECT_EQ(faddi64at(dir, "state", row.delta), 0);
        EXPECT_EQ(read("/tmp/state"), row.sum);
    }
    EXPECT_EQ(faddlongat(dir, "no/folder", 1), -1);
    EXPECT_EQ(faddi64at(dir, ".", 1), -1);
    close(dir);
}

TEST_F(Files, NoDescriptorStaysOpen)
{
    const int before = open_descriptors();
    char line[300];
    freadline(holding("a=1\n"), line, sizeof line, "");
    freadvalue("/tmp/state", "a", line, sizeof line, "");
    fsreadlinebykey("/tmp/state", "b", line, sizeof line);
    freadi64at(AT_FDCWD, "/tmp/state", 1);
    faddlongat(AT_FDCWD, "/tmp/state", 1);
    fwritelineat(AT_FDCWD, "/tmp/state", "x");
    EXPECT_EQ(open_descriptors(), before);
}



#include "support/device.h"

using Files = Device;
constexpr char kState[] = "/tmp/state";

// What all readers make of a file: the line, given so many bytes, and the number.
static std::string readings(const char *path, int size)
{
    char line[16] = "kept", text[300];
    errno = 0;
    const int rc = fsreadline(path, line, size);
    const std::string first = line, second = freadline(path, line, size, "none");
    const char *const at = path ? path : ""; // openat() takes no NULL
    snprintf(text, sizeof text, "%d [%s] [%s] [%s] %ld %ld %ld %ld %g", rc, first.c_str(),
             second.c_str(), freadlineat(AT_FDCWD, at, line, size, "none"), freadlong(path, -7),
             static_cast<long>(freadulong(path, -7UL)), freadlongat(AT_FDCWD, at, -7),
             freadi64at(AT_FDCWD, at, -7), freaddouble(path, 1.5));
    return text;
}

TEST_F(Files, FirstLinesAndNumbersAreRead)
{
    const std::tuple<const char *, int, const char *> rows[] = {
        {"one\ntwo\n", 16, "0 [one] [one] [one] -7 -7 -7 -7 1.5"},
        {"0x10\r\n", 16, "0 [0x10\r] [0x10\r] [0x10\r] 0 0 16 16 16"},
        {"  -5 kB\n", 1, "0 [] [] [] -5 -5 -5 -5 -5"},
        {"", 16, "0 [kept] [kept] [none] -7 -7 -7 -7 1.5"}, // no error came before
        {"5", 0, "0 [kept] [kept] [kept] 5 5 5 5 5"},
        // 15 characters of a number are seen, 32 of one with a fraction.
        {"  1234567890123456789\n", 5,
         "0 [  12] [  12] [  12] 1234567890123 1234567890123 "
         "1234567890123 1234567890123 1.23457e+18"},
        {"/tmp", 16, "-21 [kept] [none] [none] -7 -7 -7 -7 1.5"}, // paths of no file
        {"/tmp/missing", 3, "-2 [kept] [no] [no] -7 -7 -7 -7 1.5"},
    };
    for (const auto &[text, size, want] : rows) {
        file(kState, text);
        EXPECT_EQ(readings(*text == '/' ? text : kState, size), want) << text;
    }
    EXPECT_EQ(readings(nullptr, 5), "-22 [kept] [none] [none] -7 -7 -7 -7 1.5");
}

TEST_F(Files, LinesAndValuesAreFoundByTheirKeys)
{
    // 254 characters make a piece, so the last two lines' ends are lines of their own.
    file(kState, "MemTotal:  1024 kB\nmode=ap\nempty\nempty=\n\t late =\t= 7\r\nmode=sta\n"
                 "modes=x\nempty = found\n" +
                     std::string(260, '.') + "wan0: up\n" + std::string(254, ' ') + "tail=end");
    const std::tuple<const char *, const char *, size_t, const char *> rows[] = {
        {kState, "empty", 30, "found, 0 empty\n"},
        {kState, "late", 30, "7, 0 \t late =\t= 7\r\n"},
        {kState, "mode", 1, ", 0 "},
        {kState, "MODE", 3, "no, -1 ke"}, // ended, whatever happens
        {kState, "mode", 0, "kept, -1 kept"},
        {nullptr, "mode", 30, "none, -1 kept"},
    };
    char value[31], line[31];
    for (const auto &[path, key, size, want] : rows) {
        strcpy(value, "kept");
        strcpy(line, "kept");
        freadvalue(path, key, value, size, "none");
        const int rc = fsreadlinebykey(path, key, line, size);
        EXPECT_EQ(std::string(value) + ", " + std::to_string(rc) + " " + line, want);
    }
    file(kState, std::string(1 << 20, '\n') + "last=1\n"); // as long as only a device may be cut
    EXPECT_STREQ(freadvalue(kState, "last", value, sizeof value, "none"), "1");
    EXPECT_EQ(fsreadlinebykey(kState, nullptr, line, sizeof line), -1);
    libzorv_log_level = 16; // a missing default is an error, and an empty text
    EXPECT_STREQ(freadline("/tmp/missing", line, sizeof line, nullptr), "");
    EXPECT_THAT(logged(),
                ElementsAre("[debug] libzorv_util.freadline(): fsreadline returned error code -2",
                            "[error] libzorv_util.freadline(): NULL pointer for default value"));
}

TEST_F(Files, WritingReplacesTheContentAndCountersAddUp)
{
    const int tmp = open("/tmp", O_DIRECTORY | O_CLOEXEC);
    file("/tmp/text", "longer than what comes\n");
    EXPECT_EQ(fwriteline("/tmp/line", "%s=%d\n", "mode", 5), 7);
    EXPECT_EQ(fwritelineat(tmp, "text", "%s\n", "new"), 4);
    EXPECT_EQ(errno, EBADF); // the second close
    EXPECT_EQ(fwritelongat(tmp, "number", LONG_MIN), 0);
    EXPECT_EQ(faddlongat(tmp, "sum", 5), 0);
    EXPECT_EQ(run("cd /tmp; cat line text number sum; stat -c %a number sum").output,
              "mode=5\nnew\n-9223372036854775808\n5\n600\n600\n");
    const std::tuple<const char *, long, const char *, const char *> rows[] = {
        {"0x10 and more\nlines\n", 1, "1\n", "17\n"},
        {"1", LONG_MAX, "-9223372036854775808\n", "-9223372036854775808\n"},
    };
    for (const auto &[text, delta, base_ten, any_base] : rows) {
        file(kState, text);
        EXPECT_EQ(faddlong(kState, delta), 0);
        EXPECT_EQ(read(kState), base_ten) << text;
        file(kState, text);
        EXPECT_EQ(faddi64at(tmp, "state", delta), 0);
        EXPECT_EQ(read(kState), any_base) << text;
    }
    EXPECT_EQ(fwriteline("/tmp/no/folder", "x"), -1);
    EXPECT_EQ(fwritelongat(-1, "number", 1) + faddlongat(tmp, "no/folder", 1), -2);

    file("/tmp/state.7", ""); // the last one is beyond a stack
    for (const auto &[slashes, error] :
         {std::pair{4083, 0}, {4084, ENAMETOOLONG}, {16 << 20, ENAMETOOLONG}}) {
        const std::string head(static_cast<size_t>(slashes), '/');
        FILE *const stream = fopen_format("re", "%s/tmp/%s.%d", head.c_str(), "state", 7);
        EXPECT_EQ(stream ? fclose(stream) : errno, error) << slashes;
    }
}

// Whatever a test remounts, the build machine's files and modes are as they were.
TEST_F(Files, OfTheMachineAreNotTheTests)
{
    kernel_proc();
    EXPECT_EQ(run(R"(for place in $(cut -d ' ' -f 5 /proc/self/mountinfo | grep -v '^/proc$'); do
            mount -o remount,bind,rw,dev $place; umount -l $place; done
        echo >/.host/tmp/written || echo >/.host/dev/null || chmod 666 /dev/null ||
        cp /proc/sys/vm/swappiness /proc/sys/vm/)")
                  .status,
              1);
}

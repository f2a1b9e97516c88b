#include <zorv/text.h>

#include <cstring>
#include <set>

#include "support/device.h"

using namespace std::literals;
using testing::Each;

class Texts : public Device {
protected:
    // What a file holds after its lines with these patterns are commented out.
    static std::string commented(std::string_view content, std::string patterns, int rc)
    {
        file("/tmp/lines", content);
        FILE *const stream = fopen("/tmp/lines", "r+e");
        EXPECT_EQ(comment_out_lines(stream, patterns.data()), rc);
        std::string result = read("/tmp/lines"); // what was flushed, before it is closed
        fclose(stream);
        return result;
    }
};

TEST_F(Texts, TrimmingReplacesWhiteSpaceAtTheEnd)
{
    char text[] = " a b \t\r\n\v\f";
    trim_trailing(text, sizeof text - 1);
    EXPECT_STREQ(text, " a b");
    EXPECT_EQ(text[sizeof text - 2], '\0');
    char blank[] = "   ";
    trim_trailing(blank, 0);
    trim_trailing(blank, -3);
    EXPECT_STREQ(blank, "   ");
    trim_trailing(blank, 3);
    EXPECT_STREQ(blank, "");
}

TEST_F(Texts, TheTrimmingCopyTrimsOnlyInFront)
{
    char text[8] = "kept";
    strncpy_trim(text, sizeof text, "  ab  ");
    EXPECT_STREQ(text, "ab  ");
    strncpy_trim(text, 4, "\t\n abcdef");
    EXPECT_STREQ(text, "abc");
    strncpy_trim(text, 0, "x");
    EXPECT_STREQ(text, "abc");
    strncpy_trim(text, sizeof text, " \n");
    EXPECT_STREQ(text, "");
    text[0] = 'x';
    strncpy_trim(text, sizeof text, nullptr);
    EXPECT_STREQ(text, "");
    strncpy_trim(nullptr, 8, "x");
}

TEST_F(Texts, HexDigitsBecomeBytes)
{
    const struct {
        const char *hex;
        size_t result;
        unsigned char bytes[4];
    } rows[] = {
        {"0a1B", 4, {0x0a, 0x1b}},
        {"0a1B2c3d4e", 4, {0x0a, 0x1b, 0x2c, 0x3d}},
        {"abc", 4, {0xab, 0x0c}}, // an odd digit stands for itself
        {"f", 4, {0x0f}},
        {"0axx0b", 4, {0x0a}},
        {"a b", 4, {0x0a, 0x0b}}, // as scanf() reads it
        {"  1f", 4, {0x1f, 0x1f}},
        {"-1", 4, {0xff}},
        {"zz", 4, {}},
        {"", 0, {}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.hex);
        unsigned char bytes[4] = {9, 9, 9, 9};
        EXPECT_EQ(hex2uchar(row.hex, bytes, sizeof bytes), row.result);
        EXPECT_EQ(memcmp(bytes, row.bytes, sizeof bytes), 0);
    }
    unsigned char untouched = 9;
    EXPECT_EQ(hex2uchar("0a", &untouched, 0), 0U);
    EXPECT_EQ(untouched, 9);
    EXPECT_EQ(hex2uchar(nullptr, &untouched, 1), 0U);
    EXPECT_EQ(hex2uchar("0a", nullptr, 1), 0U);
}

TEST_F(Texts, BytesBecomeHexDigits)
{
    const unsigned char bytes[] = {0x0a, 0xff, 0x07};
    char text[10] = "kept....x";
    EXPECT_EQ(uchar2hex(bytes, 3, text, 6), 0U);
    EXPECT_EQ(uchar2hex(bytes, SIZE_MAX, text, sizeof text), 0U);
    EXPECT_EQ(uchar2hex(bytes, SIZE_MAX / 2 + 2, text, sizeof text), 0U); // twice that is 2
    EXPECT_EQ(uchar2hex(nullptr, 3, text, sizeof text), 0U);
    EXPECT_EQ(uchar2hex(bytes, 0, text, 0), 0U);
    EXPECT_STREQ(text, "kept....x");
    EXPECT_EQ(uchar2hex(bytes, 3, nullptr, 7), 0U);
    EXPECT_EQ(uchar2hex(bytes, 3, text, 7), 3U);
    EXPECT_STREQ(text, "0AFF07");
    EXPECT_EQ(uchar2lowerhex(bytes, 3, text, sizeof text), 3U);
    EXPECT_EQ(std::string(text, sizeof text), "0aff07\0\0\0\0"s);
}

TEST_F(Texts, HardwareAddressesHaveSixFields)
{
    unsigned char mac[6] = {1, 2, 3, 4, 5, 6};
    EXPECT_EQ(strtomac("00:11:22:33:44", mac), -1);
    EXPECT_EQ(strtomac("00-11-22-33-44-55", mac), -1);
    EXPECT_EQ(strtomac("", mac), -1);
    EXPECT_THAT(mac, ElementsAre(1, 2, 3, 4, 5, 6));
    EXPECT_EQ(strtomac("02:a0:F1:0:0:7 br0", mac), 0);
    EXPECT_THAT(mac, ElementsAre(0x02, 0xa0, 0xf1, 0, 0, 7));
}

TEST_F(Texts, RandomTextsFillTheirBufferAndNoMore)
{
    std::set<char> seen;
    char text[2001];
    memset(text, 'k', sizeof text);
    ASSERT_EQ(gen_rand_string(text, 1999), text);
    EXPECT_EQ(strlen(text), 1999U);
    EXPECT_EQ(text[2000], 'k');
    seen.insert(text, text + 1999);
    EXPECT_EQ(seen.size(), 62U); // all of them are drawn: the odds against are 1 in 10^12
    EXPECT_EQ(std::string(text).find_first_not_of("0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                                  "abcdefghijklmnopqrstuvwxyz"),
              std::string::npos);
    EXPECT_EQ(gen_rand_string(nullptr, 5), nullptr);
    EXPECT_EQ(gen_rand_string(text, 0), nullptr);

    memset(text, 'k', sizeof text);
    EXPECT_EQ(gen_rand_hex(text, 8), 0U);
    EXPECT_EQ(gen_rand_hex(text, 0), 0U);
    EXPECT_EQ(text[0], 'k');
    EXPECT_EQ(gen_rand_hex(nullptr, 9), 0U);
    EXPECT_EQ(gen_rand_hex(text, 9), 4U);
    EXPECT_EQ(strspn(text, "0123456789ABCDEF"), 8U);
    EXPECT_EQ(text[8], '\0');
    EXPECT_EQ(text[9], 'k');
    EXPECT_EQ(gen_rand_hex(text, 1), 0U);
    EXPECT_STREQ(text, "");
}

// rand() is what is tested. NOLINTBEGIN(cert-msc30-c,cert-msc32-c,cert-msc50-cpp,cert-msc51-cpp)
TEST_F(Texts, RandomBytesFollowTheSeedOfTheKernel)
{
    remove("/dev/urandom");
    file("/dev/urandom", "\x04\x03\x02\x01");
    unsigned char bytes[4];
    EXPECT_EQ(gen_rand_bytes(bytes, sizeof bytes), 4U);
    srand(0x01020304);
    for (const unsigned char byte : bytes)
        EXPECT_EQ(byte, rand() & 0xff);
    EXPECT_EQ(gen_rand_bytes(nullptr, 4), 0U); // seeds all the same
    const int after_null = rand();
    EXPECT_EQ(gen_rand_bytes(bytes, 0), 0U);
    EXPECT_EQ(rand(), after_null);
    EXPECT_EQ(gen_rand_string(nullptr, 0), nullptr); // does not
    EXPECT_NE(rand(), after_null);
}
// NOLINTEND(cert-msc30-c,cert-msc32-c,cert-msc50-cpp,cert-msc51-cpp)

TEST_F(Texts, AMissingRandomDeviceIsVerboseDetail)
{
    remove("/dev/urandom");
    unsigned char bytes[64] = {};
    EXPECT_EQ(gen_rand_bytes(bytes, sizeof bytes), sizeof bytes);
    EXPECT_THAT(bytes, testing::Not(Each(0)));
    EXPECT_THAT(logged(), ElementsAre());
    libzorv_log_level = 16;
    file("/dev/urandom", "abc"); // one byte short
    EXPECT_EQ(gen_rand_bytes(bytes, sizeof bytes), sizeof bytes);
    EXPECT_THAT(logged(),
                ElementsAre("[debug] libzorv_util.urandom(): read returned error in urandom"));
}

TEST_F(Texts, MatchingLinesAreCommentedOutInPlace)
{
    const std::string whole(254, 'x'); // with its newline, as long as a line may be
    std::string hashed = whole;
    hashed[0] = '#';
    const std::string over(255, 'x');
    const struct {
        std::string content, patterns, result;
        int rc;
    } rows[] = {
        {"option x\n", "option", "#ption x\n", 0},
        {"a\nb\nab\n", "b", "a\n#\n#b\n", 0},
        {"one\ntwo\nthree", "three|one", "#ne\ntwo\n#hree", 0},
        {"one\ntwo\n", "||two||", "one\n#wo\n", 0},
        {"one\n", "", "one\n", 0},
        {"ONE\n", "one", "ONE\n", 0},
        {"# one\none\n", "one", "# one\n#ne\n", 0},
        {"", "one", "", 0},
        {"one\0two\nnext\n"s, "two", "#ne\0two\nnext\n"s, 0},
        {whole + "\nx\n", "x", hashed + "\n#\n", 0},
        {over + "\nx\n", "x", over + "\n#\n", -1},
        {over + over + over + "\nx\n", "x", over + over + over + "\n#\n", -1},
        {"x\n" + over, "x", "#\n" + over, -1}, // without a newline at the end of the file
        {"x\n" + whole, "x", "#\n" + hashed, 0},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.content.substr(0, 40) + " / " + row.patterns);
        EXPECT_EQ(commented(row.content, row.patterns, row.rc), row.result);
    }
}

TEST_F(Texts, AStreamThatCannotBeWrittenIsNotReadForEver)
{
    file("/tmp/lines", "one\nx"); // the last line again and again, if the position stays behind it
    FILE *const stream = fopen("/tmp/lines", "re");
    char patterns[] = "x";
    EXPECT_EQ(comment_out_lines(stream, patterns), 0);
    EXPECT_NE(ferror(stream), 0);
    fclose(stream);
    EXPECT_EQ(read("/tmp/lines"), "one\nx");
}

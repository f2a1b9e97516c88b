

#include "support/device.h"

using Texts = Device;
using namespace std::literals;

TEST_F(Texts, AreTrimmedAndHexDigitsBecomeBytes)
{
    // The array, of which so much is trimmed, all bytes then, and the copy of 4 bytes at most.
    const std::tuple<const char *, int, std::string, const char *> trimmed[] = {
        {" a \t\r\n\v\f", 8, " a\0\0\0\0\0\0"s, "a \t"},
        {"\t\n abcde", 8, "\t\n abcde", "abc"},
        {"        ", 3, "\0\0\0     "s, ""},
    };
    for (const auto &[text, length, trailing, leading] : trimmed) {
        std::string copy = text;
        trim_trailing(copy.data(), length);
        EXPECT_EQ(copy, trailing);
        char out[] = "kept..";
        strncpy_trim(out, 4, text);
        strncpy_trim(out, 0, nullptr);
        EXPECT_STREQ(out, leading);
        strncpy_trim(out, 4, nullptr);
        EXPECT_STREQ(out, "");
    }

    // As scanf() reads it; an odd digit stands for itself.
    const std::pair<const char *, const char *> rows[] = {
        {"0a1B2c3d4e", "4 0a1b2c3d"}, {"abc", "4 ab0c0000"},   {"0axx0b", "4 0a000000"},
        {"a b", "4 0a0b0000"},        {"  1f", "4 1f1f0000"},  {"-1", "4 ff000000"},
        {"", "0 00000000"},           {nullptr, "0 09090909"},
    };
    unsigned char bytes[4];
    char text[16];
    for (const auto &[hex, want] : rows) {
        memset(bytes, 9, sizeof bytes);
        const size_t count = hex2uchar(hex, bytes, sizeof bytes);
        const auto [a, b, c, d] = bytes;
        snprintf(text, sizeof text, "%zu %02x%02x%02x%02x", count, a, b, c, d);
        EXPECT_STREQ(text, want);
    }
    const unsigned char three[] = {0x0a, 0xff, 0x07};
    EXPECT_EQ(uchar2hex(three, 3, text, 6) + uchar2hex(three, SIZE_MAX, text, 10), 0U);
    EXPECT_EQ(uchar2hex(nullptr, 3, text, 9) + uchar2hex(three, 0, text, 0), 0U);
    EXPECT_EQ(uchar2hex(three, 3, text, 7), 3U);
    EXPECT_STREQ(text, "0AFF07");
    EXPECT_EQ(uchar2lowerhex(three, 3, text, 10), 3U);
    EXPECT_EQ(std::string(text, 10), "0aff07\0\0\0\0"s);
    unsigned char mac[6];
    EXPECT_EQ(strtomac("00:11:22:33:44", mac), -1);
    EXPECT_EQ(strtomac("02:a0:F1:0:0:7 br0", mac), 0);
    EXPECT_THAT(mac, ElementsAre(0x02, 0xa0, 0xf1, 0, 0, 7));
}

// rand() is what is tested. NOLINTBEGIN(cert-msc30-c,cert-msc32-c,cert-msc50-cpp,cert-msc51-cpp)
TEST_F(Texts, RandomOnesFillTheirBufferAndFollowTheSeedOfTheKernel)
{
    std::string text(2001, 'k');
    EXPECT_EQ(gen_rand_string(text.data(), 0), nullptr);
    EXPECT_EQ(gen_rand_string(text.data(), 1999), text.data());
    // All of them are drawn: the odds against are 1 in 10^12.
    const std::set<char> seen(text.begin(), text.begin() + 1999);
    EXPECT_EQ(std::string(seen.begin(), seen.end()) + text.substr(1999),
              "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz\0k"s);
    EXPECT_EQ(gen_rand_hex(text.data(), 8), 0U);
    text = "kkkkkkkkkk";
    EXPECT_EQ(gen_rand_hex(text.data(), 9), 4U);
    EXPECT_EQ(strspn(text.data(), "0123456789ABCDEF"), 8U);
    EXPECT_EQ(text.substr(8), "\0k"s);

    remove("/dev/urandom");
    file("/dev/urandom", "\x04\x03\x02\x01");
    unsigned char bytes[64];
    EXPECT_EQ(gen_rand_bytes(bytes, 4), 4U);
    srand(0x01020304);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(bytes[i], rand() & 0xff);
    // All seed without a place too, but for one.
    srand(1);
    EXPECT_EQ(gen_rand_bytes(nullptr, 4) + gen_rand_hex(nullptr, 9), 0U);
    EXPECT_EQ(gen_rand_string(nullptr, 9), nullptr);
    EXPECT_EQ(rand() & 0xff, bytes[0]);
    libzorv_log_level = 16;
    file("/dev/urandom", "abc"); // one byte short
    EXPECT_EQ(gen_rand_bytes(bytes, sizeof bytes), sizeof bytes);
    EXPECT_THAT(logged(),
                ElementsAre("[debug] libzorv_util.urandom(): read returned error in urandom"));
    const std::string first(reinterpret_cast<char *>(bytes), sizeof bytes);
    gen_rand_bytes(bytes, sizeof bytes); // in the same second, and others all the same
    EXPECT_NE(std::string(reinterpret_cast<char *>(bytes), sizeof bytes), first);
}
// NOLINTEND(cert-msc30-c,cert-msc32-c,cert-msc50-cpp,cert-msc51-cpp)

TEST_F(Texts, MatchingLinesAreCommentedOutInPlace)
{
    const std::string whole(254, 'x'); // with its newline, as long as a line may be
    const std::string hashed = "#" + whole.substr(1), over = whole + "x";
    const std::tuple<std::string, std::string, std::string, int> rows[] = {
        {"a\nb\nab\nB\n", "b", "a\n#\n#b\nB\n", 0},
        {"one\0two\nthree"s, "||three|two|", "#ne\0two\n#hree"s, 0},
        {whole + "\nx\n", "x", hashed + "\n#\n", 0},
        {over + over + "\nx\n", "x", over + over + "\n#\n", -1},
        {"x\n" + over, "x", "#\n" + over, -1}, // without a newline at the end of the file
        {"x\n" + whole, "x", "#\n" + hashed, 0},
    };
    for (auto [content, patterns, result, rc] : rows) {
        file("/tmp/lines", content);
        FILE *const stream = fopen("/tmp/lines", "r+e");
        EXPECT_EQ(comment_out_lines(stream, patterns.data()), rc);
        EXPECT_EQ(read("/tmp/lines"), result); // what was flushed, before it is closed
        fclose(stream);
    }
}

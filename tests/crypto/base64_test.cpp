#include <zorv/base64.h>

#include <climits>
#include <cstring>

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include "crypto/samples.h"

namespace {

constexpr char kStandard[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kUrlSafe[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

// A buffer of exactly the documented size, so that the sanitizers see a byte too many.
std::string encoded(decltype(base64rfc_encode) *encode, std::span<const uint8_t> bytes)
{
    const int length = static_cast<int>(bytes.size());
    std::vector<char> text(static_cast<size_t>(base64_encode_len(length)), '#');
    encode(text.data(), bytes.data(), length);
    EXPECT_NE(memchr(text.data(), '\0', text.size()), nullptr);
    return text.data();
}

// The text has so many characters before the first foreign one.
std::string decoded(const char *text, size_t characters)
{
    Bytes bytes(static_cast<size_t>(base64_decode_len(text)), '#');
    EXPECT_EQ(bytes.size(), (characters + 3) / 4 * 3 + 1);
    base64_decode(bytes.data(), text);
    const size_t length = characters * 3 / 4;
    EXPECT_EQ(bytes[length], 0);
    return to_hex(std::span(bytes).first(length));
}

// The text without padding, taken from the bytes six bits at a time.
std::string model(std::span<const uint8_t> bytes, const char *alphabet)
{
    std::string text;
    for (size_t bit = 0; bit < 8 * bytes.size(); bit += 6) {
        const size_t at = bit / 8;
        const int pair = bytes[at] << 8 | (at + 1 < bytes.size() ? bytes[at + 1] : 0);
        text += alphabet[pair >> (10 - bit % 8) & 63];
    }
    return text;
}

} // namespace

TEST(Base64, TextsAndLengthsAreThePublishedOnes)
{
    constexpr const char *kVectors[][3] = {
        {"", "", ""}, // RFC 4648 10
        {"66", "Zg==", "Zg"},
        {"666f", "Zm8=", "Zm8"},
        {"666f6f", "Zm9v", "Zm9v"},
        {"fbff", "+/8=", "-_8"},
    };
    for (const auto &[hex, standard, url_safe] : kVectors) {
        EXPECT_EQ(encoded(base64rfc_encode, from_hex(hex)), standard);
        EXPECT_EQ(encoded(base64url_encode, from_hex(hex)), url_safe);
        EXPECT_EQ(decoded(standard, strlen(url_safe)), hex);
        EXPECT_EQ(decoded(url_safe, strlen(url_safe)), hex);
    }
    EXPECT_EQ(decoded("Zm9vY", 5), "666f6f"); // a single character gives nothing
    unsigned char bytes[4];
    base64url_decode(bytes, "Zm8=");
    EXPECT_EQ(to_hex(bytes).substr(0, 6), "666f00");
    EXPECT_EQ(base64url_decode_len("Zm8="), 4);

    const std::pair<int, int> kLengths[] = {
        {0, 1},           {1, 5},  {2, 5},       {3, 5},        {4, 9},
        {300, 401},       {-1, 1}, {INT_MIN, 1}, {INT_MAX, -1}, {1610612733, 2147483645},
        {1610612734, -1},
    };
    for (const auto &[length, size] : kLengths) {
        EXPECT_EQ(base64_encode_len(length), size) << length;
        EXPECT_EQ(base64url_encode_len(length), size) << length;
    }
    char text[] = "before";
    base64rfc_encode(text, nullptr, -3);
    EXPECT_STREQ(text, "");
}

// Both alphabets mixed, any foreign byte behind the text, any bytes behind that, and then a page
// that must not be read, nor the one behind the bytes to encode.
TEST(Base64, RandomBytesComeBack)
{
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    void *const pages =
        mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(pages, MAP_FAILED);
    char *const end = static_cast<char *>(pages) + page;
    ASSERT_EQ(mprotect(end, page, PROT_NONE), 0);
    Random random;
    for (size_t i = 0; i < 20000; ++i) {
        const Bytes source = random.bytes(i % 101);
        const std::span bytes(reinterpret_cast<uint8_t *>(end) - source.size(), source.size());
        std::copy(source.begin(), source.end(), bytes.begin());
        const std::string standard = model(bytes, kStandard), url_safe = model(bytes, kUrlSafe);
        ASSERT_EQ(encoded(base64url_encode, bytes), url_safe);
        ASSERT_EQ(encoded(base64rfc_encode, bytes),
                  standard + std::string((3 - bytes.size() % 3) % 3, '='));

        std::string text = random.below(2) == 0 ? standard : url_safe;
        auto foreign = static_cast<char>(i / 101);
        if (memchr(kStandard, foreign, 64) || memchr(kUrlSafe, foreign, 64))
            foreign = '\n';
        text += foreign;
        if (i % 2 == 0)
            text += url_safe.substr(0, i / 2 % 50);
        char *const start = end - text.size();
        memcpy(start, text.data(), text.size());
        ASSERT_EQ(decoded(start, standard.size()), to_hex(source)) << text;
    }
    munmap(pages, 2 * page);
}

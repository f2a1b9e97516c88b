#include <zorv/base64.h>

#include <climits>
#include <cstring>

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include "crypto/samples.h"

namespace {

constexpr std::string_view kStandard =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::string_view kUrlSafe =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
// What the whole alphabet encodes.
Bytes alphabet()
{
    return from_hex("00108310518720928b30d38f41149351559761969b71d79f"
                    "8218a39259a7a29aabb2dbafc31cb3d35db7e39ebbf3dfbf");
}

// Buffers of exactly the documented sizes, so that the sanitizers see a byte too many.
std::string encoded(decltype(base64rfc_encode) *encode, const Bytes &bytes)
{
    const int length = static_cast<int>(bytes.size());
    std::vector<char> text(static_cast<size_t>(base64_encode_len(length)), '#');
    encode(text.data(), bytes.data(), length);
    EXPECT_NE(memchr(text.data(), '\0', text.size()), nullptr);
    return text.data();
}

// How many bytes the decoder gives for so many characters.
size_t decoded_length(size_t characters)
{
    return characters / 4 * 3 + characters % 4 * 3 / 4;
}

Bytes decoded(const char *text, size_t characters)
{
    Bytes bytes(static_cast<size_t>(base64_decode_len(text)), '#');
    EXPECT_EQ(bytes.size(), (characters + 3) / 4 * 3 + 1);
    base64_decode(bytes.data(), text);
    EXPECT_EQ(bytes[decoded_length(characters)], 0);
    bytes.resize(decoded_length(characters));
    return bytes;
}

} // namespace

TEST(Base64, TextsMatchThePublishedOnes)
{
    const struct {
        const char *bytes, *standard, *url_safe;
    } kVectors[] = {
        {"", "", ""}, // RFC 4648 10
        {"66", "Zg==", "Zg"},
        {"666f", "Zm8=", "Zm8"},
        {"666f6f", "Zm9v", "Zm9v"},
        {"666f6f62", "Zm9vYg==", "Zm9vYg"},
        {"666f6f6261", "Zm9vYmE=", "Zm9vYmE"},
        {"666f6f626172", "Zm9vYmFy", "Zm9vYmFy"},
        {"fbff", "+/8=", "-_8"},
    };
    for (const auto &vector : kVectors) {
        SCOPED_TRACE(vector.standard);
        const Bytes bytes = from_hex(vector.bytes);
        EXPECT_EQ(encoded(base64rfc_encode, bytes), vector.standard);
        EXPECT_EQ(encoded(base64url_encode, bytes), vector.url_safe);
        EXPECT_EQ(decoded(vector.standard, strlen(vector.url_safe)), bytes);
        EXPECT_EQ(decoded(vector.url_safe, strlen(vector.url_safe)), bytes);
    }
    EXPECT_EQ(encoded(base64rfc_encode, alphabet()), kStandard);
    EXPECT_EQ(encoded(base64url_encode, alphabet()), kUrlSafe);
    EXPECT_EQ(decoded((std::string(kStandard) + std::string(kUrlSafe)).c_str(), 128).size(), 96U);
    EXPECT_EQ(decoded(kStandard.data(), 64), alphabet());
    EXPECT_EQ(decoded(kUrlSafe.data(), 64), alphabet());
}

// Whole vectors, what is left behind them, and every alignment.
TEST(Base64, EveryLengthComesBack)
{
    Random random;
    for (size_t length = 0; length <= 200; ++length) {
        SCOPED_TRACE(length);
        const Bytes bytes = random.bytes(length);
        const std::string standard = encoded(base64rfc_encode, bytes);
        const std::string url_safe = encoded(base64url_encode, bytes);
        const size_t characters = length + (length + 2) / 3;
        EXPECT_EQ(standard.size(), (length + 2) / 3 * 4);
        EXPECT_EQ(url_safe.size(), characters);
        const std::string shifted = std::string(length % 16, ' ') + url_safe;
        EXPECT_EQ(decoded(standard.c_str(), characters), bytes);
        EXPECT_EQ(decoded(shifted.c_str() + length % 16, characters), bytes);
    }
}

TEST(Base64, TheFirstForeignByteEndsTheText)
{
    const Bytes whole = alphabet();
    for (int value = 0; value < 256; ++value) {
        const auto byte = static_cast<char>(value);
        const bool foreign =
            (kStandard.find(byte) == kStandard.npos && kUrlSafe.find(byte) == kUrlSafe.npos);
        for (const size_t at : {0U, 1U, 4U, 15U, 16U, 31U, 32U, 50U}) {
            SCOPED_TRACE(testing::Message() << "byte " << value << " at " << at);
            std::string text(kStandard);
            text[at] = byte;
            const size_t characters = foreign ? at : 64;
            const Bytes bytes = decoded(text.c_str(), characters);
            const size_t common = decoded_length(at);
            ASSERT_GE(bytes.size(), common);
            EXPECT_EQ(to_hex(bytes.data(), common), to_hex(whole.data(), common));
        }
    }
    EXPECT_EQ(decoded("Zm9v\nYmFy", 4), from_hex("666f6f"));
    EXPECT_EQ(decoded("Zm9vY", 5), from_hex("666f6f"));
}

TEST(Base64, NothingIsReadOfThePageBehindTheText)
{
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    void *const pages =
        mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(pages, MAP_FAILED);
    char *const end = static_cast<char *>(pages) + page;
    ASSERT_EQ(mprotect(end, page, PROT_NONE), 0);
    for (size_t length = 0; length <= 64; ++length) {
        SCOPED_TRACE(length);
        char *const text = end - length - 1;
        memcpy(text, kStandard.data(), length);
        text[length] = '\n'; // no NUL anywhere
        Bytes expected = alphabet();
        expected.resize(decoded_length(length));
        EXPECT_EQ(decoded(text, length), expected);
        unsigned char *const bytes = reinterpret_cast<unsigned char *>(end) - length;
        memset(bytes, 0, length);
        std::vector<char> room(100);
        base64url_encode(room.data(), bytes, static_cast<int>(length));
        EXPECT_EQ(std::string(room.data()), std::string(length + (length + 2) / 3, 'A'));
    }
    munmap(pages, 2 * page);
}

TEST(Base64, LengthsHoldAtTheLimitsOfAnInt)
{
    const std::pair<int, int> kLengths[] = {
        {0, 1},           {1, 5},  {2, 5},       {3, 5},        {4, 9},
        {300, 401},       {-1, 1}, {INT_MIN, 1}, {INT_MAX, -1}, {1610612733, 2147483645},
        {1610612734, -1},
    };
    for (const auto &[length, size] : kLengths) {
        SCOPED_TRACE(length);
        EXPECT_EQ(base64_encode_len(length), size);
        EXPECT_EQ(base64url_encode_len(length), size);
    }
    char text[] = "before";
    base64rfc_encode(text, nullptr, -3);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(base64url_decode_len("Zm8="), 4);
    unsigned char bytes[4];
    base64url_decode(bytes, "Zm8=");
    EXPECT_EQ(to_hex(bytes, 3), "666f00");
}

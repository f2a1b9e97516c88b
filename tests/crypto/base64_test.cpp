#include <zorv/base64.h>

#include <climits>
#include <cstring>

#include <gtest/gtest.h>

#include "crypto/samples.h"

namespace {

// A buffer of exactly the documented size, so that the sanitizers see a byte too many.
std::string encoded(decltype(base64rfc_encode) *encode, std::span<const uint8_t> bytes)
{
    const int length = static_cast<int>(bytes.size());
    std::vector<char> text(static_cast<size_t>(base64_encode_len(length)), '#');
    encode(text.data(), bytes.data(), length);
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

TEST(Base64, TextsAndLengthsAreThePublishedOnes)
{
    constexpr const char *kVectors[][3] = {
        {"", "", ""}, // RFC 4648 10
        {"66", "Zg==", "Zg"},
        {"666f", "Zm8=", "Zm8"},
        {"fbffbf", "+/+/", "-_-_"},
        {"00108310518720928b30d38f41149351559761969b71d79f8218a39259a7a29aabb2dbafc31cb3d35db7e39e"
         "bbf3dfbf", // all in their order
         "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/",
         "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_"},
    };
    for (const auto &[hex, standard, url_safe] : kVectors) {
        EXPECT_EQ(encoded(base64rfc_encode, from_hex(hex)), standard);
        EXPECT_EQ(encoded(base64url_encode, from_hex(hex)), url_safe);
        EXPECT_EQ(decoded(standard, strlen(url_safe)), hex);
    }
    EXPECT_EQ(decoded("Zm9vY", 5), "666f6f"); // a single character gives nothing
    unsigned char bytes[4];
    base64url_decode(bytes, "Zm8=");
    EXPECT_EQ(to_hex(bytes).substr(0, 6), "666f00");
    EXPECT_EQ(base64url_decode_len("Zm8="), 4);
    const std::pair<int, int> kLengths[] = {
        {0, 1},           {1, 5}, {3, 5}, {4, 9}, {-1, 1}, {INT_MAX, -1}, {1610612733, 2147483645},
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

// Any foreign byte behind the text, and any bytes behind that.
TEST(Base64, RandomBytesComeBack)
{
    for (size_t i = 0; i < 20000; ++i) {
        const Bytes bytes = random_bytes(i % 101);
        std::string text = encoded(i % 2 ? base64url_encode : base64rfc_encode, bytes);
        const size_t length = (bytes.size() * 4 + 2) / 3;
        ASSERT_EQ(text.size(), i % 2 ? length : (bytes.size() + 2) / 3 * 4);
        text.resize(length);
        const auto foreign = static_cast<char>(i / 101);
        text += isalnum(foreign) || strchr("+/-_", foreign) ? '\n' : foreign;
        text += text.substr(0, i / 2 % 50);
        ASSERT_EQ(decoded(text.c_str(), length), to_hex(bytes)) << text;
    }
}

} // namespace

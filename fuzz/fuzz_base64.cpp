// Base64 both ways: the decoder against one character at a time in a buffer of exactly the size
// that it asks for, and what either encoder writes comes back.
#include <zorv/base64.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

constexpr std::string_view kStandard =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::string_view kUrlSafe =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

void require(bool holds)
{
    if (!holds)
        abort();
}

// Bit by bit, up to the first foreign character; count becomes the number of characters before it.
Bytes decode_simply(std::string_view text, size_t &count)
{
    Bytes bytes;
    uint32_t bits = 0;
    for (count = 0; count < text.size(); ++count) {
        const size_t value = std::min(kStandard.find(text[count]), kUrlSafe.find(text[count]));
        if (value == std::string_view::npos)
            break;
        bits = bits << 6 | static_cast<uint32_t>(value);
        if (count % 4 != 0)
            bytes.push_back(static_cast<unsigned char>(bits >> (6 - count % 4 * 2)));
    }
    return bytes;
}

// A text without a NUL is ended by its last character when that is foreign.
void check_decoding(std::string_view text)
{
    size_t count;
    Bytes expected = decode_simply(text, count);
    expected.push_back('\0');
    const std::vector<char> exact(text.data(), text.data() + std::min(text.size(), count + 1));
    const int size = base64_decode_len(exact.data());
    require(size == static_cast<int>((count + 3) / 4 * 3 + 1));
    require(size == base64url_decode_len(exact.data()));
    Bytes bytes(static_cast<size_t>(size));
    base64_decode(bytes.data(), exact.data());
    require(expected.size() <= bytes.size());
    require(memcmp(bytes.data(), expected.data(), expected.size()) == 0);
}

void check_round_trip(decltype(base64rfc_encode) *encode, const Bytes &bytes, size_t length)
{
    std::vector<char> text(static_cast<size_t>(base64_encode_len(static_cast<int>(bytes.size()))));
    encode(text.data(), bytes.data(), static_cast<int>(bytes.size()));
    require(strlen(text.data()) == length);
    Bytes back(static_cast<size_t>(base64_decode_len(text.data())));
    base64url_decode(back.data(), text.data());
    require(std::equal(bytes.begin(), bytes.end(), back.begin()));
    require(back[bytes.size()] == '\0');
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const Bytes bytes(data, data + size);
    std::vector<char> text(data, data + size);
    text.push_back('\0');
    check_decoding({text.data(), text.size()});
    check_round_trip(base64rfc_encode, bytes, (size + 2) / 3 * 4);
    check_round_trip(base64url_encode, bytes, size + (size + 2) / 3);
    return 0;
}

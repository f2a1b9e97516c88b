// Hexadecimal forms: there and back, what sscanf() makes of the same text, hardware addresses.
#include <zorv/format.h>
#include <zorv/text.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

void require(bool holds)
{
    if (!holds)
        abort();
}

using Bytes = std::vector<unsigned char>;

// Pair by pair as it is described; never past the terminator.
Bytes scan(const std::string &hex, size_t size)
{
    Bytes bytes(size);
    for (size_t i = 0; i < size && 2 * i < hex.size(); ++i) {
        unsigned value;
        if (sscanf(hex.c_str() + 2 * i, "%2x", &value) != 1)
            break;
        bytes[i] = static_cast<unsigned char>(value);
    }
    return bytes;
}

void check_scanning(const std::string &hex)
{
    for (const size_t size : {size_t{0}, size_t{1}, hex.size() / 2, hex.size() + 3}) {
        Bytes bytes(size);
        require(hex2uchar(hex.c_str(), bytes.data(), size) ==
                (hex.empty() || size == 0 ? 0 : size));
        require(bytes == scan(hex, size));
    }
}

void check_round_trip(const Bytes &bytes)
{
    std::string upper(2 * bytes.size() + 1, 'x');
    std::string lower = upper;
    require(uchar2hex(bytes.data(), bytes.size(), upper.data(), upper.size()) == bytes.size());
    require(uchar2lowerhex(bytes.data(), bytes.size(), lower.data(), lower.size()) == bytes.size());
    Bytes back(bytes.size());
    hex2uchar(upper.c_str(), back.data(), back.size());
    require(back == bytes);
    const int digits = bin2hex(bytes.data(), static_cast<int>(bytes.size()), upper.data(),
                               static_cast<int>(upper.size()));
    require(digits == std::max(0, 2 * (static_cast<int>(bytes.size()) - 1)));
    require(lower.compare(0, static_cast<size_t>(digits), upper, 0, static_cast<size_t>(digits)) ==
            0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data),
                           strnlen(reinterpret_cast<const char *>(data), size));
    if (text.size() < 4096)
        check_scanning(text);
    if (size > 0)
        check_round_trip(Bytes(data, data + size));
    unsigned char mac[6];
    if (strtomac(text.c_str(), mac) == 0)
        require(std::count(text.begin(), text.end(), ':') >= 5);
    return 0;
}

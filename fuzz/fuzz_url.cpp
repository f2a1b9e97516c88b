// URLs: the normalised text is the same URL again, a copy is equal, and an encoded text decodes.
#include <zorv/log.h>
#include <zorv/url.h>

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace {

constexpr size_t kLongest = 1024;

struct FreeUrl {
    void operator()(url *record) const { url_destroy(record); }
};
using UrlPtr = std::unique_ptr<url, FreeUrl>;

void require(bool holds)
{
    if (!holds)
        abort();
}

bool is_same(const char *a, const char *b)
{
    return a && b ? strcmp(a, b) == 0 : a == b;
}

bool is_same(const url &a, const url &b)
{
    return is_same(a.url, b.url) && is_same(a.scheme, b.scheme) &&
           is_same(a.userinfo, b.userinfo) && is_same(a.host, b.host) && a.port == b.port &&
           is_same(a.path, b.path) && a.is_https == b.is_https && a.is_ipv6 == b.is_ipv6;
}

bool is_name(const char *host)
{
    for (; *host; ++host)
        if (isalpha(static_cast<unsigned char>(*host)) && tolower(*host) > 'f')
            return true;
    return false;
}

// The few forms whose normalised text says something else: it grew too long; an "@" that an empty
// userinfo shielded; an unbracketed address with a "]"; a host that only the letters of its port
// made a name.
bool says_something_else(const url &record)
{
    const std::string host = record.host;
    return strlen(record.url) > kLongest || (!record.userinfo && strchr(record.url, '@')) ||
           (record.is_ipv6 && host.find(']') != host.npos) ||
           (!record.is_ipv6 && !is_name(record.host) &&
            (host.find('.') == host.npos || host.find('[') != host.npos));
}

void check_record(const url &record, const char *text)
{
    require(is_same(record.raw, text));
    require(record.port >= 1 && record.port < 65535);
    require(*record.host && strchr("/?;", *record.path) && *record.path);
    require(!record.userinfo || *record.userinfo);
    const UrlPtr copy(url_copy(&record));
    require(copy && is_same(record, *copy) && is_same(record.raw, copy->raw));
    if (says_something_else(record))
        return;
    const UrlPtr again(url_parse(record.url));
    require(again && is_same(record, *again));
}

std::string decoded(const char *text)
{
    std::string result;
    while (*text) {
        unsigned byte = static_cast<unsigned char>(*text == '+' ? ' ' : *text);
        const bool is_escape = *text == '%';
        if (is_escape)
            require(sscanf(text, "%%%2x", &byte) == 1);
        result += static_cast<char>(byte);
        text += is_escape ? 3 : 1;
    }
    return result;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    libzorv_log_level = 0;
    const std::string bytes(reinterpret_cast<const char *>(data), size);
    const char *const text = bytes.c_str();
    const UrlPtr record(url_parse(text));
    if (record)
        check_record(*record, text);
    const std::unique_ptr<char, decltype(&free)> encoded(url_encode(text), free);
    require(decoded(encoded.get()) == text);
    return 0;
}

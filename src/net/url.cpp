#include <zorv/url.h>

#include <charconv>
#include <cstddef>
#include <cstring>
#include <string_view>

#include <strings.h>
#include <syslog.h>

#include "core/log_gate.h"
#include "core/own.h"
#include "core/text_tools.h"

using namespace zorv;
using std::string_view;

// The layout is part of the interface: callers are built against it.
static_assert(offsetof(url, port) == 40 && offsetof(url, path) == 48 &&
              offsetof(url, is_https) == 56 && offsetof(url, is_ipv6) == 60 &&
              offsetof(url, addr) == 64 && offsetof(url, storage) == 112 &&
              offsetof(url, reserved) == 140 && sizeof(url) == 144);

namespace {

constexpr char kModule[] = "libzorv";
constexpr size_t kLongest = 1024;    // characters of a text that is parsed
constexpr size_t kPortDigits = 5;    // at most
constexpr unsigned kPortEnd = 65535; // the first number that is no port
constexpr auto kNone = string_view::npos;

// What the normalised text has more than its parts: "://", "@", "[", "]", a port; the parts
// themselves, and the scheme "http" and the path "/" where the text has none, fit in the rest.
constexpr size_t kNormalised = kLongest + 32;

using Url = std::unique_ptr<url, Closer<url_destroy>>;

constexpr struct Scheme {
    char name[8];
    uint16_t port;
} kSchemes[] = {
    {"http", 80}, {"https", 443}, {"stun", 3478}, {"ws", 80}, {"wss", 443},
};

// A text taken apart; the views point into it, or are literals.
struct Parts {
    const Scheme *scheme;
    string_view userinfo; // empty when there is none
    string_view host;
    uint16_t port;
    string_view path;
    bool is_ipv6;
};

// Host and port as they stand in a text.
struct Authority {
    string_view host;
    string_view port; // empty when there is none
    bool is_ipv6;
};

// Only ASCII has letters and digits here, whatever the program's locale.
constexpr bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}
constexpr char lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
}
constexpr bool is_letter(char c)
{
    return lower(c) >= 'a' && lower(c) <= 'z';
}

const Scheme *find_scheme(string_view name)
{
    for (const Scheme &scheme : kSchemes)
        if (name.size() == strlen(scheme.name) &&
            strncasecmp(name.data(), scheme.name, name.size()) == 0)
            return &scheme;
    return nullptr;
}

// The two sides of a position, which may lie behind the text; substr() could throw.
string_view from(string_view text, size_t position)
{
    text.remove_prefix(position < text.size() ? position : text.size());
    return text;
}
string_view before(string_view text, size_t position)
{
    return {text.data(), position < text.size() ? position : text.size()};
}

// Finds the scheme and takes it off the text. NULL when there is none that is known.
const Scheme *take_scheme(string_view &text)
{
    const size_t colon = text.find(':');
    if (colon == kNone)
        return find_scheme("http");
    const string_view name = before(text, colon);
    text = from(text, colon);
    if (!begins_with(text, "://"))
        return nullptr;
    text.remove_prefix(strlen("://"));
    return find_scheme(name);
}

// A name stands out by a letter that no hexadecimal address has.
bool has_name_letter(string_view authority)
{
    for (const char c : authority)
        if (is_letter(c) && lower(c) > 'f')
            return true;
    return false;
}

// Splits at a colon, or takes all for the host when there is none.
Authority split_at(string_view authority, size_t colon)
{
    return {before(authority, colon), colon == kNone ? "" : from(authority, colon + 1), false};
}

// Tells host and port apart; the host is empty when the text makes no sense.
Authority split_authority(string_view authority)
{
    const size_t colon = authority.find(':');
    if (has_name_letter(authority))
        return split_at(authority, colon);
    const size_t open = authority.find('[');
    const size_t dot = authority.find('.');
    if (open == kNone && dot != kNone && colon > dot) // kNone is behind everything
        return split_at(authority, colon);
    if (open == kNone)
        return {authority, "", true};
    const string_view inside = from(authority, open + 1);
    const size_t close = inside.find(']');
    if (close == kNone)
        return {};
    const string_view tail = from(inside, close);
    const size_t tail_colon = tail.find(':');
    return {before(inside, close), tail_colon == kNone ? "" : from(tail, tail_colon + 1), true};
}

// On purpose a port that is none is passed over without a word; 65535 is none.
uint16_t read_port(string_view text, uint16_t fallback)
{
    if (text.empty() || text.size() > kPortDigits)
        return fallback;
    unsigned port = 0;
    for (const char c : text) {
        if (!is_digit(c))
            return fallback;
        port = port * 10 + static_cast<unsigned>(c - '0');
    }
    return port >= 1 && port < kPortEnd ? static_cast<uint16_t>(port) : fallback;
}

bool split(string_view text, Parts &parts)
{
    parts.scheme = take_scheme(text);
    if (!parts.scheme)
        return false;
    const size_t path = text.find_first_of("/?;");
    parts.path = path == kNone ? "/" : from(text, path);
    // The first "@" counts wherever it stands; one in the path leaves nothing for the host.
    const size_t at = text.find('@');
    const size_t begin = at == kNone ? 0 : at + 1;
    parts.userinfo = at == kNone ? "" : before(text, at);
    const Authority authority =
        path < begin ? Authority{} : split_authority(from(before(text, path), begin));
    parts.host = authority.host;
    parts.is_ipv6 = authority.is_ipv6;
    parts.port = read_port(authority.port, parts.scheme->port);
    return !parts.host.empty();
}

void append(char *&end, string_view text)
{
    end = static_cast<char *>(mempcpy(end, text.data(), text.size()));
}

Text normalised(const Parts &parts)
{
    char text[kNormalised];
    char *end = text;
    append(end, parts.scheme->name);
    append(end, "://");
    append(end, parts.userinfo);
    append(end, parts.userinfo.empty() ? "" : "@");
    append(end, parts.is_ipv6 ? "[" : "");
    append(end, parts.host);
    append(end, parts.is_ipv6 ? "]" : "");
    if (parts.port != parts.scheme->port) {
        append(end, ":");
        end = std::to_chars(end, text + sizeof text, parts.port).ptr;
    }
    append(end, parts.path);
    return duplicate({text, static_cast<size_t>(end - text)});
}

bool store(char *&member, string_view text)
{
    member = duplicate(text).release();
    return member != nullptr;
}

bool store(char *&member, const char *text)
{
    return !text || store(member, string_view(text));
}

Url make_empty()
{
    return Url(static_cast<url *>(calloc(1, sizeof(url))));
}

// Empty when memory is short.
Url make_record(string_view text, const Parts &parts)
{
    Url record = make_empty();
    if (!record)
        return record;
    record->url = normalised(parts).release();
    record->port = parts.port;
    record->is_https = find_scheme("https") == parts.scheme;
    record->is_ipv6 = parts.is_ipv6;
    const bool complete = record->url && store(record->raw, text) &&
                          store(record->scheme, string_view(parts.scheme->name)) &&
                          (parts.userinfo.empty() || store(record->userinfo, parts.userinfo)) &&
                          store(record->host, parts.host) && store(record->path, parts.path);
    if (!complete)
        record.reset();
    return record;
}

constexpr bool is_unreserved(char c)
{
    return is_letter(c) || is_digit(c) || c == '-' || c == '.' || c == '_' || c == '~';
}

} // namespace

int url_scheme2port(const char *scheme, uint16_t *port)
{
    const Scheme *const found = scheme ? find_scheme(scheme) : nullptr;
    if (!found)
        return -1;
    if (port)
        *port = found->port;
    return 0;
}

url *url_parse(const char *text)
{
    const string_view whole(text ? text : "", text ? strnlen(text, kLongest + 1) : 0);
    Parts parts;
    if (whole.empty() || whole.size() > kLongest || !split(whole, parts))
        return nullptr;
    Url record = make_record(whole, parts);
    if (!record)
        syslog(LOG_ERR, "%s:%d url oom\n", __func__, __LINE__);
    return record.release();
}

void url_destroy(url *record)
{
    if (!record)
        return;
    for (char *const text :
         {record->url, record->raw, record->scheme, record->userinfo, record->host, record->path})
        free(text);
    free(record);
}

url *url_copy(const url *record)
{
    if (!record || !record->url)
        return nullptr;
    Url copy = make_empty();
    if (!copy || !store(copy->url, record->url) || !store(copy->raw, record->raw) ||
        !store(copy->scheme, record->scheme) || !store(copy->userinfo, record->userinfo) ||
        !store(copy->host, record->host) || !store(copy->path, record->path)) {
        syslog(LOG_ERR, "%s:%d url oom\n", __func__, __LINE__);
        return nullptr;
    }
    copy->port = record->port;
    copy->is_https = record->is_https;
    copy->is_ipv6 = record->is_ipv6;
    copy->addr = record->addr; // On purpose: its address stays the source's, see the header.
    copy->reserved = record->reserved;
    return copy.release();
}

void url_replace(url **destination, const url *source)
{
    if (!destination || *destination == source)
        return;
    url_destroy(*destination);
    *destination = url_copy(source);
}

char *url_encode(const char *text)
{
    constexpr char kDigits[] = "0123456789abcdef";
    if (!text)
        return nullptr;
    const size_t size = 3 * strlen(text) + 1;
    Text encoded(static_cast<char *>(malloc(size)));
    if (!encoded) {
        log_malloc_failed(size);
        return nullptr;
    }
    char *end = encoded.get();
    for (; *text != '\0'; ++text) {
        const auto byte = static_cast<unsigned char>(*text);
        if (is_unreserved(*text) || *text == ' ') {
            *end++ = *text == ' ' ? '+' : *text;
        } else {
            *end++ = '%';
            *end++ = kDigits[byte >> 4];
            *end++ = kDigits[byte & 15];
        }
    }
    *end = '\0';
    return encoded.release();
}

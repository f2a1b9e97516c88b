

#include "support/device.h"

using UrlPtr = std::unique_ptr<url, decltype(&url_destroy)>;
using Urls = Device;

static UrlPtr parsed(const std::string &text)
{
    return {url_parse(text.c_str()), url_destroy};
}

// A record: its normalised text, what that is made of, and whether it is HTTPS or IPv6.
static std::string shown(const url *record)
{
    if (!record)
        return "none";
    std::ostringstream line;
    line << record->url << " = " << record->scheme << ' '
         << (record->userinfo ? record->userinfo : "-") << ' ' << record->host << ' '
         << record->port << ' ' << record->path << (record->is_https == 1 ? " https" : "")
         << (record->is_ipv6 == 1 ? " v6" : "");
    return line.str();
}

// What was logged, without the words that all lines of dump_addrinfo() begin with.
static std::string said()
{
    constexpr std::string_view kDump = "[debug] libzorv.dump_addrinfo(): ";
    std::string text;
    for (const std::string &line : Device::logged())
        text += (line.starts_with(kDump) ? line.substr(kDump.size()) : line) + "\n";
    return text;
}

TEST_F(Urls, ATextIsTakenApart)
{
    libzorv_log_level = 16;
    const std::pair<const char *, const char *> rows[] = {
        {"HTTPS://MyHost", "https://MyHost/ = https - MyHost 443 / https"},
        {"Stun://u:p@host:3479", "stun://u:p@host:3479/ = stun u:p host 3479 /"},
        {"wss://host:80;x=1", "wss://host:80;x=1 = wss - host 80 ;x=1"},
        {"host?q=/", "http://host?q=/ = http - host 80 ?q=/"},
        {"http://@host:8x:1/", "http://host/ = http - host 80 /"},
        {"http://[fe80::1]:8080/a?b", "http://[fe80::1]:8080/a?b = http - fe80::1 8080 /a?b v6"},
        {"http://[fe80::1]x:9/", "http://[fe80/ = http - [fe80 80 /"}, // x: a name
        {"http://[fe80::1]-:9/", "http://[fe80::1]:9/ = http - fe80::1 9 / v6"},
        {"http://cafe]", "http://[cafe]]/ = http - cafe] 80 / v6"},
        {"http://face.bed:8", "http://face.bed:8/ = http - face.bed 8 /"},
        {"http://1:2.3:4/", "http://[1:2.3:4]/ = http - 1:2.3:4 80 / v6"},
    };
    url *copy = url_parse("http://old");
    for (const auto &[text, want] : rows) {
        const UrlPtr record = parsed(text);
        ASSERT_EQ(shown(record.get()), want);
        EXPECT_STREQ(record->raw, text);
        EXPECT_EQ(url_addr_ntop(record.get(), nullptr, 0), 0);
        url_replace(&copy, record.get());
        url_replace(&copy, copy);
        EXPECT_STREQ(copy->raw, text);
        EXPECT_EQ(shown(copy), want);
    }
    url_replace(nullptr, copy);
    url_replace(&copy, nullptr);
    EXPECT_EQ(copy, nullptr);
    // What names no host is refused in silence.
    std::istringstream refused(": / :// http: http:/h http:// http://@ http://h@/ http://:x/ "
                               "http://[]/ http://[::1 http://h/a@b ftp://h/ httpx://h h:8080/x");
    for (std::string text; refused >> text;)
        EXPECT_FALSE(parsed(text)) << text;
    EXPECT_FALSE(parsed("") || url_parse(nullptr) || url_copy(nullptr));
    EXPECT_TRUE(parsed(std::string(1024, 'a'))); // the form that grows most: [], http:// and /
    EXPECT_FALSE(parsed(std::string(1025, 'h')));
    EXPECT_EQ(said(), "");

    // Only a port from 1 to 65534 counts.
    const std::pair<const char *, int> ports[] = {
        {"1", 1},  {"65534", 65534}, {"65535", 443},  {"0", 443},   {"99999", 443},
        {"", 443}, {"00080", 80},    {"000080", 443}, {"+80", 443}, {"8:", 443},
    };
    for (const auto &[digits, number] : ports)
        EXPECT_EQ(parsed(std::string("https://host:") + digits + "/")->port, number) << digits;
    uint16_t port = 7;
    EXPECT_EQ(url_scheme2port("https ", &port), -1);
    EXPECT_EQ(port, 7);
    EXPECT_EQ(url_scheme2port("Stun", &port), 0);
    EXPECT_EQ(port, 3478);
    EXPECT_EQ(url_scheme2port("ws", nullptr) + url_scheme2port(nullptr, nullptr), -1);

    // Beside letters and digits, too.
    char *const query = url_encode("a z&AZ09-._~+%\xff\x01\n@[`{/:");
    EXPECT_STREQ(query, "a+z%26AZ09-._~%2b%25%ff%01%0a%40%5b%60%7b%2f%3a");
    free(query);
    EXPECT_EQ(url_encode(nullptr), nullptr);
}

TEST_F(Urls, TheLastAddressOfAnAnswerIsTaken)
{
    file("/etc/nsswitch.conf", "hosts: files\nprotocols: files\n");
    file("/etc/host.conf", "multi on\n");
    remove("/etc/protocols"); // a link to the build machine's
    file("/etc/protocols", "tcp 6 TCP\n");
    file("/etc/hosts", "127.0.0.1 inform\n127.0.0.2 inform\n127.0.0.3 inform\n"
                       "2001:db8::1 both\n127.0.0.4 both\n2001:db8::6 six\n");
    addrinfo any = {}, six = {};
    any.ai_socktype = SOCK_DGRAM;
    any.ai_flags = AI_CANONNAME; // a name that belongs to the answer
    six.ai_family = AF_INET6;
    six.ai_socktype = SOCK_STREAM;
    const std::string asked = "[debug] libzorv.url_resolve(): url: http://10.0.0.1:81/\n";
    // What resolving a host comes to after another: the result, the address, its port and type, and
    // what is said.
    const std::tuple<int, const char *, const addrinfo *, std::string> rows[] = {
        {1, "inform", &any, "0 127.0.0.3 81 2\n"},
        {1, "both", nullptr, "0 127.0.0.4 81 1\n"},
        {8, "six", nullptr,
         "-2 none 81 0\n" + asked +
             "[debug] libzorv.url_resolve(): failed to resolve URL : Name or service not known\n"},
        {17, "six", &six, "0 2001:db8::6 81 1\n" + asked}, // the whole answer at level 16 alone
        {16, "six", &six,
         "0 2001:db8::6 81 1\n" + asked +
             "Protocol:\t6 (tcp)\n"
             "Socket Address (len=28):\n  Port:\t\t81\n  IPv6 Address:\t2001:db8::6\n"},
    };
    for (const auto &[level, host, hints, want] : rows) {
        libzorv_log_level = level;
        const UrlPtr record = parsed("http://10.0.0.1:81");
        url_resolve(record.get(), nullptr);
        free(record->host);
        record->host = strdup(host);
        said();
        const int result = url_resolve(record.get(), hints);
        EXPECT_FALSE(record->addr.ai_canonname || record->addr.ai_next);
        char address[INET6_ADDRSTRLEN] = "none";
        EXPECT_EQ(url_addr_ntop(record.get(), address, sizeof address), 0);
        std::ostringstream text;
        text << result << ' ' << address << ' ' << ntohs(record->storage.sin6_port) << ' '
             << record->addr.ai_socktype << '\n';
        EXPECT_EQ(text.str() + said(), want);
    }
    EXPECT_EQ(url_resolve(nullptr, nullptr), -1);

    const UrlPtr source = parsed("http://127.0.0.3");
    ASSERT_EQ(url_resolve(source.get(), nullptr), 0);
    char little[4] = "abc";
    EXPECT_EQ(url_addr_ntop(source.get(), little, sizeof little), ENOSPC);
    EXPECT_EQ(url_addr_ntop(nullptr, little, sizeof little), EINVAL);
    EXPECT_EQ(url_addr_ntop(source.get(), nullptr, 0), EINVAL);
    // A copy owns its texts, but not its address.
    source->reserved = 5;
    const UrlPtr copy(url_copy(source.get()), url_destroy);
    EXPECT_NE(copy->host, source->host);
    EXPECT_EQ(copy->reserved, 5);
    EXPECT_EQ(copy->addr.ai_addr, reinterpret_cast<sockaddr *>(&source->storage));
    ASSERT_EQ(url_resolve(copy.get(), nullptr), 0);
    EXPECT_EQ(copy->reserved, 0);
    logged();

    libzorv_log_level = 8;
    sockaddr_in v4 = {AF_INET, htons(53), {htonl(0xC0000207)}, {}};
    sockaddr other = {AF_UNIX, {}};
    addrinfo list[3] = {};
    list[0] = {0, AF_INET, 0, 99, sizeof v4, reinterpret_cast<sockaddr *>(&v4), nullptr, &list[1]};
    list[1] = {0, AF_UNIX, 0, 99, sizeof other, &other, nullptr, &list[2]};
    dump_addrinfo(list);
    EXPECT_EQ(said(), "Protocol:\t99 (Unknown)\nSocket Address (len=16):\n  Port:\t\t53\n"
                      "  IPv4 Address:\t192.0.2.7\nProtocol:\t99 (Unknown)\n"
                      "Socket Address (len=16):\n  Unknown address family\n"
                      "Protocol:\t0 (Unknown)\n");
}

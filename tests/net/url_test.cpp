#include <zorv/url.h>

#include <cstdlib>
#include <memory>
#include <random>

#include <arpa/inet.h>

#include "support/device.h"

namespace {

struct FreeUrl {
    void operator()(url *record) const { url_destroy(record); }
};
using UrlPtr = std::unique_ptr<url, FreeUrl>;

UrlPtr parsed(const std::string &text)
{
    return UrlPtr(url_parse(text.c_str()));
}

std::string encoded(const std::string &text)
{
    const std::unique_ptr<char, decltype(&free)> result(url_encode(text.c_str()), free);
    return result.get();
}

// All that two texts of the same URL have in common.
void expect_same(const url &a, const url &b)
{
    EXPECT_STREQ(a.url, b.url);
    EXPECT_STREQ(a.scheme, b.scheme);
    EXPECT_STREQ(a.userinfo, b.userinfo);
    EXPECT_STREQ(a.host, b.host);
    EXPECT_EQ(a.port, b.port);
    EXPECT_STREQ(a.path, b.path);
    EXPECT_EQ(a.is_https, b.is_https);
    EXPECT_EQ(a.is_ipv6, b.is_ipv6);
}

std::string address(const url *record)
{
    char text[INET6_ADDRSTRLEN] = "none";
    EXPECT_EQ(url_addr_ntop(record, text, sizeof text), 0);
    return text;
}

class Urls : public Device {
protected:
    // A site whose resolver knows a few names, one of them with several addresses.
    static void write_hosts()
    {
        file("/etc/nsswitch.conf", "hosts: files\nprotocols: files\n");
        file("/etc/host.conf", "multi on\n");
        remove("/etc/protocols"); // a link to the build machine's
        file("/etc/protocols", "tcp 6 TCP\nudp 17 UDP\n");
        file("/etc/hosts", "127.0.0.1 inform\n127.0.0.2 inform\n127.0.0.3 inform\n"
                           "2001:db8::1 both\n127.0.0.4 both\n2001:db8::6 six\n");
    }
};

} // namespace

TEST_F(Urls, ATextIsTakenApart)
{
    const struct {
        const char *text, *url, *userinfo, *host, *path;
        int port, is_ipv6;
    } rows[] = {
        {"myhost", "http://myhost/", nullptr, "myhost", "/", 80, 0},
        {"HTTPS://MyHost", "https://MyHost/", nullptr, "MyHost", "/", 443, 0},
        {"Stun://u:p@host:3479", "stun://u:p@host:3479/", "u:p", "host", "/", 3479, 0},
        {"ws://host:80/a:b/c", "ws://host/a:b/c", nullptr, "host", "/a:b/c", 80, 0},
        {"wss://host:80;x=1", "wss://host:80;x=1", nullptr, "host", ";x=1", 80, 0},
        {"host?q=/", "http://host?q=/", nullptr, "host", "?q=/", 80, 0},
        {"http://@host//", "http://host//", nullptr, "host", "//", 80, 0},
        {"http://a@host/b@c", "http://a@host/b@c", "a", "host", "/b@c", 80, 0},
        {"http://host:8x:1/", "http://host/", nullptr, "host", "/", 80, 0},
        {"http://[fe80::1]:8080/a?b", "http://[fe80::1]:8080/a?b", nullptr, "fe80::1", "/a?b", 8080,
         1},
        {"http://[fe80::1]x:9/", "http://[fe80/", nullptr, "[fe80", "/", 80, 0}, // x: a name
        {"http://[fe80::1]-:9/", "http://[fe80::1]:9/", nullptr, "fe80::1", "/", 9, 1},
        {"http://fe80::1", "http://[fe80::1]/", nullptr, "fe80::1", "/", 80, 1},
        {"http://cafe", "http://[cafe]/", nullptr, "cafe", "/", 80, 1},
        {"http://cafe]", "http://[cafe]]/", nullptr, "cafe]", "/", 80, 1},
        {"http://face.bed:8", "http://face.bed:8/", nullptr, "face.bed", "/", 8, 0},
        {"http://:80/", "http://[:80]/", nullptr, ":80", "/", 80, 1},
        {"http://1:2.3:4/", "http://[1:2.3:4]/", nullptr, "1:2.3:4", "/", 80, 1},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text);
        const UrlPtr record = parsed(row.text);
        ASSERT_TRUE(record);
        EXPECT_STREQ(record->raw, row.text);
        EXPECT_STREQ(record->url, row.url);
        EXPECT_EQ(std::string(record->url).find(record->scheme), 0U);
        EXPECT_STREQ(record->userinfo, row.userinfo);
        EXPECT_STREQ(record->host, row.host);
        EXPECT_EQ(record->port, row.port);
        EXPECT_STREQ(record->path, row.path);
        EXPECT_EQ(record->is_https, std::string(record->scheme) == "https");
        EXPECT_EQ(record->is_ipv6, row.is_ipv6);
        EXPECT_EQ(address(record.get()), "none");
        EXPECT_EQ(url_addr_ntop(record.get(), nullptr, 0), 0);
    }
}

TEST_F(Urls, OnlyAPortFrom1To65534Counts)
{
    const std::pair<const char *, int> rows[] = {
        {"1", 1},       {"65534", 65534}, {"65535", 443}, {"65536", 443},  {"0", 443},
        {"99999", 443}, {"", 443},        {"00080", 80},  {"000080", 443}, {"+80", 443},
        {" 80", 443},   {"8 ", 443},      {"0x50", 443},  {"-1", 443},
    };
    for (const char *const host : {"host", "10.0.0.1", "[::1]"}) {
        for (const auto &[port, number] : rows) {
            SCOPED_TRACE(std::string(host) + ":" + port);
            const UrlPtr record = parsed(std::string("https://") + host + ":" + port + "/");
            ASSERT_TRUE(record);
            EXPECT_EQ(record->port, number);
        }
    }
}

TEST_F(Urls, WhatNamesNoHostIsRefusedInSilence)
{
    libzorv_log_level = 16;
    EXPECT_EQ(url_parse(nullptr), nullptr);
    constexpr const char *kTexts[] = {
        "",
        ":",
        "/",
        "://",
        "http:",
        "http:/h",
        "http://",
        "http://@",
        "http://h@",
        "http://h@/",
        "http:///p",
        "http://:x/",
        "http://[]/",
        "http://[::1",
        "http://h/a@b",
        "http://h?a@",
        "ftp://h/",
        "httpx://h",
        " http://h",
        "h:8080/x",
        "a:b://h",
        "u:p@http://h",
    };
    for (const char *const text : kTexts)
        EXPECT_FALSE(parsed(text)) << text;
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Urls, ATextMayHave1024Characters)
{
    const std::string longest = "s" + std::string(1023, 'h');
    const UrlPtr record = parsed(longest);
    ASSERT_TRUE(record);
    EXPECT_EQ(record->url, "http://" + longest + "/");
    EXPECT_TRUE(parsed(std::string(1024, 'a'))); // the form that grows most: [], http:// and /
    EXPECT_FALSE(parsed(longest + "h"));
    EXPECT_FALSE(parsed(std::string(1 << 20, 'h')));
}

// Whatever was parsed, its normalised text is the same URL again.
TEST_F(Urls, TheNormalisedTextParsesToTheSameRecord)
{
    constexpr const char *kSchemes[] = {"", "http://", "hTTps://", "STUN://", "ws://", "wSs://"};
    constexpr const char *kUsers[] = {"", "u@", "u:p@", "\x80\xff %@"};
    constexpr const char *kHosts[] = {"h",     "My-Host.example", "10.0.0.1",
                                      "[::1]", "[1.2.3.4]",       "a.bad",
                                      "cafe",  "xn--caf",         "1.2"};
    constexpr const char *kPorts[] = {"", ":", ":1", ":80", ":443", ":65535", ":8a", ":9999999"};
    constexpr const char *kPaths[] = {"", "/", "/a/b", "?q=[a:b]", ";p:80", "/\x01\xfe?#/"};
    int count = 0;
    for (const std::string scheme : kSchemes)
        for (const char *const user : kUsers)
            for (const std::string host : kHosts)
                for (const std::string port : kPorts)
                    for (const char *const path : kPaths) {
                        std::string text = scheme;
                        text.append(user).append(host).append(port).append(path);
                        const UrlPtr first = parsed(text);
                        if (!first)
                            continue;
                        SCOPED_TRACE(text);
                        const UrlPtr second = parsed(first->url);
                        ASSERT_TRUE(second);
                        expect_same(*first, *second);
                        ++count;
                    }
    EXPECT_GT(count, 5000);
}

TEST_F(Urls, SchemesHavePorts)
{
    const struct {
        const char *scheme;
        int port;
    } rows[] = {{"http", 80}, {"HTTPS", 443}, {"stun", 3478}, {"ws", 80}, {"Wss", 443}};
    uint16_t port = 7;
    EXPECT_EQ(url_scheme2port(nullptr, &port), -1);
    for (const char *const scheme : {"", "h", "http:", "https ", "ftp"})
        EXPECT_EQ(url_scheme2port(scheme, &port), -1) << scheme;
    EXPECT_EQ(port, 7);
    for (const auto &row : rows) {
        EXPECT_EQ(url_scheme2port(row.scheme, nullptr), 0);
        EXPECT_EQ(url_scheme2port(row.scheme, &port), 0);
        EXPECT_EQ(port, row.port) << row.scheme;
    }
}

TEST_F(Urls, ACopyOwnsItsTextsButNotItsAddress)
{
    write_hosts();
    const UrlPtr source = parsed("https://u@inform:8443/x");
    ASSERT_EQ(url_resolve(source.get(), nullptr), 0);
    source->reserved = 5;
    const UrlPtr copy(url_copy(source.get()));
    ASSERT_TRUE(copy);
    expect_same(*source, *copy);
    EXPECT_STREQ(copy->raw, source->raw);
    EXPECT_NE(copy->host, source->host);
    EXPECT_EQ(copy->reserved, 5);
    EXPECT_EQ(copy->addr.ai_addr, reinterpret_cast<sockaddr *>(&source->storage));
    EXPECT_EQ(address(copy.get()), address(source.get()));
    ASSERT_EQ(url_resolve(copy.get(), nullptr), 0);
    EXPECT_EQ(copy->addr.ai_addr, reinterpret_cast<sockaddr *>(&copy->storage));
    EXPECT_EQ(copy->reserved, 0);

    url empty = {};
    EXPECT_EQ(url_copy(nullptr), nullptr);
    EXPECT_EQ(url_copy(&empty), nullptr);
    url_destroy(nullptr);
}

TEST_F(Urls, ARecordIsReplacedByACopy)
{
    const UrlPtr source = parsed("ws://h");
    url *record = url_parse("http://old");
    url_replace(&record, source.get());
    ASSERT_NE(record, nullptr);
    EXPECT_STREQ(record->url, "ws://h/");
    url_replace(&record, record);
    EXPECT_STREQ(record->url, "ws://h/");
    url_replace(&record, nullptr);
    EXPECT_EQ(record, nullptr);
    url_replace(&record, source.get());
    EXPECT_NE(record, nullptr);
    url_destroy(record);
    url_replace(nullptr, source.get());
}

TEST_F(Urls, TheLastAddressOfAnAnswerIsTaken)
{
    write_hosts();
    addrinfo any = {};
    any.ai_socktype = SOCK_DGRAM;
    any.ai_flags = AI_CANONNAME; // a name that belongs to the answer
    for (const addrinfo *const hints :
         {static_cast<const addrinfo *>(nullptr), &std::as_const(any)}) {
        for (const char *const host : {"inform", "both", "10.0.0.1", "127.0.0.9"}) {
            SCOPED_TRACE(host);
            addrinfo usual = {};
            usual.ai_family = AF_INET;
            usual.ai_socktype = SOCK_STREAM;
            addrinfo *answer = nullptr;
            ASSERT_EQ(getaddrinfo(host, "81", hints ? hints : &usual, &answer), 0);
            const addrinfo *last = answer;
            while (last->ai_next)
                last = last->ai_next;

            const UrlPtr record = parsed(std::string("http://") + host + ":81");
            ASSERT_EQ(url_resolve(record.get(), hints), 0);
            ASSERT_EQ(record->addr.ai_addrlen, last->ai_addrlen);
            EXPECT_EQ(memcmp(record->addr.ai_addr, last->ai_addr, last->ai_addrlen), 0);
            EXPECT_EQ(record->addr.ai_socktype, last->ai_socktype);
            EXPECT_EQ(record->addr.ai_addr, reinterpret_cast<sockaddr *>(&record->storage));
            EXPECT_EQ(record->addr.ai_canonname, nullptr);
            EXPECT_EQ(record->addr.ai_next, nullptr);
            freeaddrinfo(answer);
        }
    }
    const UrlPtr record = parsed("http://inform");
    ASSERT_EQ(url_resolve(record.get(), nullptr), 0);
    EXPECT_EQ(address(record.get()), "127.0.0.3");
    char little[4] = "abc";
    EXPECT_EQ(url_addr_ntop(record.get(), little, sizeof little), ENOSPC);
    EXPECT_EQ(url_addr_ntop(record.get(), nullptr, 0), EINVAL);
    EXPECT_EQ(url_addr_ntop(nullptr, little, sizeof little), EINVAL);
}

TEST_F(Urls, AFailureOfTheResolverIsItsOwnCode)
{
    write_hosts();
    libzorv_log_level = 8;
    EXPECT_EQ(url_resolve(nullptr, nullptr), -1);
    const UrlPtr record = parsed("http://inform");
    ASSERT_EQ(url_resolve(record.get(), nullptr), 0);
    for (const char *const host : {"nowhere", "six"}) { // the latter has no IPv4 address
        free(record->host);
        record->host = strdup(host);
        logged();
        const int rc = url_resolve(record.get(), nullptr);
        EXPECT_LT(rc, 0);
        EXPECT_THAT(logged(),
                    ElementsAre("[debug] libzorv.url_resolve(): url: http://inform/",
                                "[debug] libzorv.url_resolve(): failed to resolve URL : " +
                                    std::string(gai_strerror(rc))));
        EXPECT_EQ(record->addr.ai_addr, nullptr);
        EXPECT_EQ(address(record.get()), "none");
    }
}

TEST_F(Urls, AWholeAnswerIsShownAtLevel16Alone)
{
    write_hosts();
    const UrlPtr record = parsed("http://six:81");
    addrinfo hints = {};
    hints.ai_family = AF_INET6;
    hints.ai_socktype = SOCK_STREAM;
    libzorv_log_level = 17;
    ASSERT_EQ(url_resolve(record.get(), &hints), 0);
    EXPECT_THAT(logged(), ElementsAre("[debug] libzorv.url_resolve(): url: http://six:81/"));
    libzorv_log_level = 16;
    ASSERT_EQ(url_resolve(record.get(), &hints), 0);
    EXPECT_THAT(logged(),
                ElementsAre("[debug] libzorv.url_resolve(): url: http://six:81/",
                            "[debug] libzorv.dump_addrinfo(): Protocol:\t6 (tcp)",
                            "[debug] libzorv.dump_addrinfo(): Socket Address (len=28):",
                            "[debug] libzorv.dump_addrinfo():   Port:\t\t81",
                            "[debug] libzorv.dump_addrinfo():   IPv6 Address:\t2001:db8::6"));

    sockaddr_in v4 = {AF_INET, htons(53), {htonl(0xC0000207)}, {}};
    sockaddr other = {AF_UNIX, {}};
    addrinfo list[3] = {};
    list[0] = {0, AF_INET, 0, 99, sizeof v4, reinterpret_cast<sockaddr *>(&v4), nullptr, &list[1]};
    list[1] = {0, AF_UNIX, 0, 99, sizeof other, &other, nullptr, &list[2]};
    dump_addrinfo(list);
    EXPECT_THAT(logged(), ElementsAre("[debug] libzorv.dump_addrinfo(): Protocol:\t99 (Unknown)",
                                      "[debug] libzorv.dump_addrinfo(): Socket Address (len=16):",
                                      "[debug] libzorv.dump_addrinfo():   Port:\t\t53",
                                      "[debug] libzorv.dump_addrinfo():   IPv4 Address:\t192.0.2.7",
                                      "[debug] libzorv.dump_addrinfo(): Protocol:\t99 (Unknown)",
                                      "[debug] libzorv.dump_addrinfo(): Socket Address (len=16):",
                                      "[debug] libzorv.dump_addrinfo():   Unknown address family",
                                      "[debug] libzorv.dump_addrinfo(): Protocol:\t0 (Unknown)"));

    // Below debug nothing is looked up: the C library's record of the last protocol stays.
    libzorv_log_level = 7;
    const protoent *const last = getprotobynumber(6);
    ASSERT_NE(last, nullptr);
    list[0].ai_protocol = 17;
    dump_addrinfo(list);
    EXPECT_EQ(last->p_proto, 6);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Urls, TextsAreEncodedForAQuery)
{
    EXPECT_EQ(encoded(""), "");
    EXPECT_EQ(encoded("a b&c"), "a+b%26c");
    EXPECT_EQ(encoded("AZaz09-._~"), "AZaz09-._~");
    EXPECT_EQ(encoded("+%/\xff\x01\n"), "%2b%25%2f%ff%01%0a");
    EXPECT_EQ(url_encode(nullptr), nullptr);
    std::string all;
    for (int byte = 1; byte < 256; ++byte)
        all += static_cast<char>(byte);
    EXPECT_EQ(encoded(all).size(), 67 + 3 * (255 - 67)); // letters, digits, four signs and a space
}

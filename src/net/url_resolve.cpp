#include <zorv/url.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include <arpa/inet.h>

#include "core/log_gate.h"
#include "core/own.h"

using namespace zorv;

namespace {

// The result of an answer without an IPv4 or IPv6 address, and of one whose last is too long.
constexpr int kNoAddress = -6;
constexpr int kOversize = -2;

constexpr char kModule[] = "libzorv";
constexpr int kDumpLevel = 16; // the one log level that shows whole answers

using Answer = std::unique_ptr<addrinfo, Closer<freeaddrinfo>>;

// The protocols that answers have, by their names in /etc/protocols. getprotobynumber() is not for
// threads.
constexpr struct {
    int number;
    char name[5];
} kProtocols[] = {
    {IPPROTO_ICMP, "icmp"},
    {IPPROTO_TCP, "tcp"},
    {IPPROTO_UDP, "udp"},
};

const char *protocol_name(int number)
{
    for (const auto &protocol : kProtocols)
        if (protocol.number == number)
            return protocol.name;
    return "Unknown";
}

constexpr bool is_internet(int family)
{
    return family == AF_INET || family == AF_INET6;
}

// An address of either family; zeros, which are of no family, where it is missing or cut.
sockaddr_in6 read_address(const addrinfo &entry)
{
    sockaddr_in6 address = {};
    if (entry.ai_addr)
        memcpy(&address, entry.ai_addr, std::min<size_t>(entry.ai_addrlen, sizeof address));
    return address;
}

bool make_readable(const sockaddr_in6 &address, char *text, socklen_t size)
{
    const size_t offset = address.sin6_family == AF_INET ? offsetof(sockaddr_in, sin_addr)
                                                         : offsetof(sockaddr_in6, sin6_addr);
    const auto *const bytes = reinterpret_cast<const char *>(&address) + offset;
    return inet_ntop(address.sin6_family, bytes, text, size) != nullptr;
}

int take_address(url &record, const addrinfo &entry)
{
    record.addr = entry;
    record.addr.ai_addr = nullptr; // these three belong to the answer
    record.addr.ai_canonname = nullptr;
    record.addr.ai_next = nullptr;
    if (entry.ai_addrlen > sizeof record.storage) {
        log_error_as("url_resolve", "Oversize sockaddr: %d vs %zd",
                     static_cast<int>(entry.ai_addrlen),
                     static_cast<ssize_t>(sizeof record.storage));
        return kOversize;
    }
    record.storage = read_address(entry);
    record.addr.ai_addr = reinterpret_cast<sockaddr *>(&record.storage);
    return 0;
}

// Takes an answer of the resolver into the record: of all its IPv4 and IPv6 addresses, the last.
int take_answer(url &record, const addrinfo *answer)
{
    int rc = kNoAddress;
    for (; answer; answer = answer->ai_next)
        if (is_internet(answer->ai_family))
            rc = take_address(record, *answer);
    return rc;
}

} // namespace

int url_resolve(url *record, const addrinfo *hints)
{
    constexpr addrinfo kDefaultHints = {0, AF_INET, SOCK_STREAM, 0, 0, nullptr, nullptr, nullptr};
    if (!record)
        return -1;
    log_debug("url: %s", record->url);
    record->addr = {};
    record->reserved = 0;

    char port[sizeof "65535"];
    snprintf(port, sizeof port, "%u", record->port);
    addrinfo *list = nullptr;
    const int rc = getaddrinfo(record->host, port, hints ? hints : &kDefaultHints, &list);
    if (rc != 0) {
        log_debug("failed to resolve URL : %s", gai_strerror(rc));
        return rc;
    }
    const Answer answer(list);
    if (libzorv_log_level == kDumpLevel)
        dump_addrinfo(list);
    return take_answer(*record, list);
}

int url_addr_ntop(const url *record, char *buf, socklen_t len)
{
    if (!record)
        return EINVAL;
    const sockaddr_in6 address = read_address(record->addr);
    if (!is_internet(address.sin6_family))
        return 0;
    if (!buf)
        return EINVAL;
    return make_readable(address, buf, len) ? 0 : errno;
}

void dump_addrinfo(const addrinfo *list)
{
    static_assert(offsetof(sockaddr_in, sin_port) == offsetof(sockaddr_in6, sin6_port));
    if (libzorv_log_level < 8) // names and addresses are made readable for debug alone
        return;
    for (; list; list = list->ai_next) {
        log_debug("Protocol:\t%d (%s)", list->ai_protocol, protocol_name(list->ai_protocol));
        if (!list->ai_addr)
            continue;

        log_debug("Socket Address (len=%d):", static_cast<int>(list->ai_addrlen));
        const sockaddr_in6 address = read_address(*list);
        if (!is_internet(address.sin6_family)) {
            log_debug("  Unknown address family");
            continue;
        }
        const char *const family = address.sin6_family == AF_INET ? "IPv4" : "IPv6";
        log_debug("  Port:\t\t%d", ntohs(address.sin6_port));
        char text[INET6_ADDRSTRLEN];
        if (make_readable(address, text, sizeof text))
            log_debug("  %s Address:\t%s", family, text);
        else
            log_error("Converting %s address to readable form", family);
    }
}

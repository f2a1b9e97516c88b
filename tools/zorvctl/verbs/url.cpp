// url.cpp - URLs: taken apart, encoded, resolved.
#include <cstring>
#include <memory>

#include <netinet/in.h>

#include <zorv/url.h>

#include "base/ask.h"
#include "base/cli.h"
#include "core/own.h"

namespace ctl {
namespace {

using Url = std::unique_ptr<url, zorv::Closer<url_destroy>>;

struct TextArgs {
    std::string text;
};

struct ResolveArgs {
    std::string text;
    bool ipv6 = false;
};

Url parse_url(const std::string &text)
{
    Url record = ask(text, [&] { return Url(url_parse(text.c_str())); });
    if (!record)
        throw Failure(Exit::no, "invalid", text + ": not a URL of a known scheme");
    return record;
}

void parse(const TextArgs &args, Reply &reply)
{
    const Url record = parse_url(args.text);
    reply.pairs(Value::object()
                    .set("url", record->url)
                    .set("scheme", record->scheme)
                    .set("userinfo", record->userinfo)
                    .set("host", record->host)
                    .set("port", static_cast<int>(record->port))
                    .set("path", record->path)
                    .set("https", record->is_https != 0)
                    .set("ipv6", record->is_ipv6 != 0));
}

void encode(const TextArgs &args, Reply &reply)
{
    const zorv::Text encoded(url_encode(args.text.c_str()));
    if (!encoded)
        throw std::bad_alloc();
    reply.document.set("encoded", encoded.get());
    reply.line(encoded.get());
}

void resolve(const ResolveArgs &args, Reply &reply)
{
    const Url record = parse_url(args.text);
    addrinfo hints = {};
    hints.ai_family = args.ipv6 ? AF_INET6 : AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    if (const int rc = url_resolve(record.get(), &hints))
        throw Failure(Exit::failed, "network", std::string(record->host) + ": " + gai_strerror(rc));
    char address[INET6_ADDRSTRLEN] = "";
    url_addr_ntop(record.get(), address, sizeof address);
    reply.document.set("host", record->host)
        .set("address", address)
        .set("port", static_cast<int>(record->port));
    reply.line(address);
}

constexpr Option kParse[] = {
    option<&TextArgs::text>("URL", "The URL").required(),
};
constexpr Option kEncode[] = {
    option<&TextArgs::text>("TEXT", "The text").required(),
};
constexpr Option kResolve[] = {
    option<&ResolveArgs::text>("URL", "The URL").required(),
    option<&ResolveArgs::ipv6>("--ipv6", "An IPv6 address; without it an IPv4 address"),
};

constexpr Verb kVerbs[] = {
    verb<parse>("parse", "Show a URL's parts and its normalised text",
                "zorvctl url parse https://[fe80::1]:8080/inform", kParse),
    verb<encode>("encode", "Percent-encode a text for a query",
                 "zorvctl url encode 'office & guests'", kEncode),
    verb<resolve>("resolve",
                  "Print the last address of a URL's host, the one that connections take",
                  "zorvctl url resolve https://localhost/", kResolve),
};

} // namespace

extern const Family url_family = {
    "url", "Take URLs apart, encode texts for them, resolve their hosts", {kVerbs}};

} // namespace ctl

/*
 * url.h - URLs: taken apart, written again in one form, resolved to an address, percent-encoded.
 *
 * Five schemes are known, in any case of letters: "http" and "ws" (port 80), "https" and "wss"
 * (443) and "stun" (3478). Nothing is kept between calls; any thread may work on a record of its
 * own. A null pointer may be passed only where it is said.
 *
 * Memory that runs short in url_parse() and url_copy() goes straight to syslog(3), whatever
 * libzorv_log_use_syslog says, as "function:line url oom".
 */
#ifndef ZORV_URL_H
#define ZORV_URL_H

#include <stdint.h>

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <zorv/api.h>

ZORV_BEGIN

/*
 * To a program in strict ISO C, compiled with -std=c11 and without _POSIX_C_SOURCE or the like,
 * <netdb.h> does not show struct addrinfo. It is declared here then, as <netdb.h> would.
 */
#ifndef AI_PASSIVE
struct addrinfo {
    int ai_flags;
    int ai_family;
    int ai_socktype;
    int ai_protocol;
    socklen_t ai_addrlen;
    struct sockaddr *ai_addr;
    char *ai_canonname;
    struct addrinfo *ai_next;
};
#endif

/*
 * A URL and its address. The texts are the record's own; url_destroy() frees them with it. A
 * program that changes one puts a malloc'd text in its place.
 */
typedef struct url {
    char *url;                   /* the normalised text */
    char *raw;                   /* the text that was parsed */
    char *scheme;                /* in lower case */
    char *userinfo;              /* what stood before "@"; NULL when there was nothing */
    char *host;                  /* a name or an address, without brackets */
    uint16_t port;               /* 1 to 65534, host order */
    char *path;                  /* with what follows it, the query too; "/" when there was none */
    int32_t is_https;            /* 1 when scheme is "https" */
    int32_t is_ipv6;             /* 1 when host was taken for an IPv6 address */
    struct addrinfo addr;        /* what url_resolve() found; zeros before. ai_addr is &storage */
    struct sockaddr_in6 storage; /* an IPv4 or IPv6 socket address */
    int32_t reserved;            /* cleared by url_resolve(), copied by url_copy() */
} url;

/*
 * Finds the default port of a scheme.
 *
 *   scheme  in any case; NULL is not known
 *   port    [out] host order; left alone on failure; may be NULL
 *
 * Returns 0, or -1 for a scheme that is not known.
 */
int url_scheme2port(const char *scheme, uint16_t *port);

/*
 * Takes a URL apart: SCHEME://USERINFO@HOST:PORT/PATH, where all but the host may be missing.
 *
 *   text  1 to 1024 characters; NULL, none or more give NULL
 *
 * Returns an owned record (the caller releases it with url_destroy()), or NULL. Only a shortage of
 * memory is logged. What the text may look like, from left to right:
 *
 *   - A text without any ":" has the scheme "http". One whose first ":" has no "//" behind it is
 *     refused, on purpose: in "myhost:8080/x" nobody can tell a scheme from a host.
 *   - The path begins at the first "/", "?" or ";" behind the scheme and goes to the end.
 *   - The userinfo ends at the first "@" behind the scheme, even if that stands in the path, as in
 *     "http://h/a@b"; such a text is refused, for it leaves no host.
 *   - A host is a name when a letter other than a to f stands in it or in its port; it ends at its
 *     first ":".
 *   - Otherwise it is an IPv4 address when it has a "." and neither a "[" nor a ":" before the ".".
 *   - All else is an IPv6 address, so "cafe" is one: between "[" and the next "]", or else, without
 *     brackets, all of it, and then there is no port. A "[" without its "]" is refused.
 *   - A port is 1 to 5 digits, 1 to 65534. On purpose, any other text in its place, 65535
 *     included, silently gives the scheme's own port: configurations carry such texts.
 *
 * The normalised text has the scheme in lower case, the brackets of an IPv6 address, a port only
 * where it is not the scheme's own, and always a path. Letters of the host keep their case.
 */
url *url_parse(const char *text);

/* Frees a record and its texts. NULL does nothing. */
void url_destroy(url *record);

/*
 * Copies a record with its texts.
 *
 * Returns an owned record (the caller releases it with url_destroy()), or NULL when `record` or its
 * normalised text is NULL or memory runs short. On purpose the resolved address is not copied: the
 * copy's addr.ai_addr points into the storage of `record`, borrowed until that is destroyed or
 * resolved again. Callers resolve the copy before they use its address without the source.
 */
url *url_copy(const url *record);

/*
 * Destroys the record at *destination and stores a copy of source there.
 *
 *   destination  [in,out] NULL does nothing; *destination may be NULL
 *   source       NULL, and one that cannot be copied, leaves NULL; *destination itself is left as
 *                it is
 */
void url_replace(url **destination, const url *source);

/*
 * Resolves the host, which may take as long as the system's resolver does.
 *
 *   record  [in,out] NULL gives -1. addr and reserved are cleared first; addr then describes the
 *           address, in storage, and has neither a name nor a next record
 *   hints   as for getaddrinfo(); NULL asks for IPv4 stream sockets
 *
 * On purpose the last IPv4 or IPv6 address of the answer is taken, not the first: sites list the
 * address that devices shall use last.
 *
 * Returns 0; -2 when that address does not fit the storage, logged as "Oversize sockaddr: %d vs
 * %zd"; -6 when the answer has no such address; or the resolver's own code, EAI_..., logged in
 * debug as "failed to resolve URL : %s". The resolver's EAI_NONAME and EAI_FAMILY are -2 and -6
 * too; only the log tells them apart. With libzorv_log_level at exactly 16 the whole answer is
 * logged by dump_addrinfo().
 */
int url_resolve(url *record, const struct addrinfo *hints);

/*
 * Writes the resolved address as text, such as "192.0.2.7" or "2001:db8::7".
 *
 *   buf  [out] INET6_ADDRSTRLEN bytes hold any; left alone when nothing is resolved
 *
 * Returns 0, also when nothing is resolved; EINVAL when `record` is NULL, or buf where it is to be
 * written; ENOSPC when buf is too small.
 */
int url_addr_ntop(const url *record, char *buf, socklen_t len);

/*
 * Logs a resolver's answer in debug, a few lines for each address: protocol, port, address. A NULL
 * list logs nothing, and below debug nothing is looked up.
 */
void dump_addrinfo(const struct addrinfo *list);

/*
 * Encodes a text for a query: letters, digits, "-", ".", "_" and "~" stay, a space becomes "+", any
 * other byte "%" and two hexadecimal digits in lower case.
 *
 * Returns an owned text (the caller releases it with free()); NULL for NULL and when memory runs
 * short.
 */
char *url_encode(const char *text);

ZORV_END

#endif

// script.h - what the cloud host is told to be: its names, what its resolvers know, what it
// answers.
#ifndef ZORV_SIM_CLOUD_SCRIPT_H
#define ZORV_SIM_CLOUD_SCRIPT_H

#include <cstdint>
#include <string>
#include <vector>

namespace cloud {

// How a site shows itself before any request.
enum class Identity {
    trusted,   // a certificate that the device trusts
    untrusted, // one of another authority
    expired,
    misnamed, // one for another name
    garbage,  // bytes that are no TLS
    reset,    // the connection is reset
    silent,   // the connection stays, and nothing comes
};

// One of the host's names. A client that names none gets the first.
struct Site {
    std::string name{};
    Identity identity = Identity::trusted;
    bool listed = true; // the system's resolver knows it
};

enum class Lookup { address, refused, nonsense, silent };

// What a DNS-over-HTTPS resolver says about a name; one without such an entry does not exist.
struct Name {
    std::string name{};
    std::string address{};
    std::string resolver{}; // the resolver that says so; all of them when empty
    Lookup lookup = Lookup::address;
};

// How an answer is given.
enum class Conduct {
    whole,      // as it should be
    raw,        // the body alone, as it stands, in place of a response; then the end
    reset,      // half of the body, then the connection is reset
    half_close, // half of the body, then no more is sent, without the closing words of TLS
    drip,       // one byte of the body each second
    endless,    // the body again and again
    hang_up,    // the connection is reset before the request's body is read
    silent,     // nothing comes
};

// The first that fits a request is given, those that look into its body before the others. What
// fits none is answered with 404.
struct Answer {
    std::string path{};   // with its query; a "*" at its end stands for any rest
    std::string method{}; // any when empty
    std::string site{};   // any when empty
    std::string holds{};  // in the request's body, blanks of both aside; anything when empty
    int status = 200;
    std::string headers{}; // lines, each with its "\r\n"
    std::string body{};    // $HOST and $NUMBER stand for the request's host and number
    Conduct conduct = Conduct::whole;
    int times = 0;    // given so often, then the next that fits; 0 is always
    int delay_ms = 0; // before it begins
};

// A site that fails for a while, whatever the script says; its resolver too.
struct Outage {
    std::string site{};
    Answer answer{};
    int64_t until_ms = 0; // of the epoch
};

struct Script {
    std::vector<Site> sites{};
    std::vector<Name> names{};
    std::vector<Answer> answers{};
};

// The sites that answer DNS questions, at /dns-query; every host has them.
inline constexpr const char *kResolvers[] = {"dns.google", "cloudflare-dns.com"};

// Reads a script of lines, "#" begins a comment:
//
//   site NAME [untrusted|expired|misnamed|garbage|reset|silent]
//   hidden-site NAME [...]             which the system's resolver does not know
//   name NAME ADDRESS [RESOLVER]
//   answer METHOD PATH [holding TEXT] STATUS [BODY]
//                                      METHOD "*" is any; BODY is the rest of the line
//
// Throws std::runtime_error with the number of a line that is none of these.
Script parse_script(const std::string &text);

// Reads outages, lines "SITE STATUS UNTIL": STATUS is that of HTTP, "reset" or "silent", UNTIL in
// milliseconds of the epoch. Throws as above.
std::vector<Outage> parse_outages(const std::string &text);

} // namespace cloud

#endif

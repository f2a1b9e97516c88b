// dns.h - DNS messages as resolvers exchange them (RFC 1035), and over HTTPS (RFC 8484).
#ifndef ZORV_SIM_CLOUD_DNS_H
#define ZORV_SIM_CLOUD_DNS_H

#include <optional>
#include <string>
#include <string_view>

namespace cloud {

struct Question {
    std::string name; // without a dot at its end
    int type = 0;     // 1 is an IPv4 address, 28 an IPv6 one
};

enum class Rcode { good = 0, no_such_name = 3, refused = 5 };

// Reads the one question of a query; nothing when the bytes are no query.
std::optional<Question> read_question(std::string_view message);

// Answers a query that read_question() has read. The answer holds the address when there is one and
// it is of the type asked for.
std::string make_answer(std::string_view query, Rcode rcode, const std::string &address);

} // namespace cloud

#endif

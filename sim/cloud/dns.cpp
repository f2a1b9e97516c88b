#include "cloud/dns.h"

#include <arpa/inet.h>

namespace cloud {
namespace {

constexpr size_t kHeader = 12;
constexpr int kIpv4 = 1, kIpv6 = 28;

int word_at(std::string_view message, size_t offset)
{
    return static_cast<unsigned char>(message[offset]) << 8 |
           static_cast<unsigned char>(message[offset + 1]);
}

// The offset behind the question's name, or 0; the name in text when wanted.
size_t skip_name(std::string_view message, std::string *name)
{
    size_t offset = kHeader;
    while (offset < message.size() && message[offset] != 0) {
        const auto length = static_cast<unsigned char>(message[offset]);
        if (length > 63 || offset + 1 + length >= message.size())
            return 0;
        if (name)
            name->append(name->empty() ? "" : ".").append(message.substr(offset + 1, length));
        offset += 1 + length;
    }
    return offset + 5 <= message.size() ? offset + 1 : 0;
}

} // namespace

std::optional<Question> read_question(std::string_view message)
{
    if (message.size() < kHeader || word_at(message, 4) != 1)
        return std::nullopt;
    Question question;
    const size_t end = skip_name(message, &question.name);
    if (end == 0)
        return std::nullopt;
    question.type = word_at(message, end);
    return question;
}

std::string make_answer(std::string_view query, Rcode rcode, const std::string &address)
{
    const size_t end = skip_name(query, nullptr);
    const int type = word_at(query, end);
    char bytes[16];
    const bool fits = rcode == Rcode::good &&
                      ((type == kIpv4 && inet_pton(AF_INET, address.c_str(), bytes) == 1) ||
                       (type == kIpv6 && inet_pton(AF_INET6, address.c_str(), bytes) == 1));
    std::string answer(query.substr(0, 2));
    answer += "\x81"; // a response, recursion was desired
    answer += static_cast<char>(0x80 | static_cast<int>(rcode));
    answer += {0, 1, 0, static_cast<char>(fits), 0, 0, 0, 0};
    answer += query.substr(kHeader, end + 4 - kHeader);
    if (fits) {
        const char size = type == kIpv4 ? 4 : 16;
        answer += {'\xc0', kHeader, 0, static_cast<char>(type), 0, 1, 0, 0, 0, 60, 0, size};
        answer.append(bytes, static_cast<size_t>(size));
    }
    return answer;
}

} // namespace cloud

#include "cfg_types.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <stdexcept>

#include <arpa/inet.h>
#include <zorv/cfg.h>

#include "base/numbers.h"
#include "base/words.h"

namespace ctl {
namespace {

constexpr char kBlanks[] = " \t";
constexpr char kBetweenWords[] = " \t\r\n="; // of freadvalue()
constexpr size_t kMacText = sizeof "02:a0:f1:00:00:07" - 1;

bool holds(const Range &range, int64_t number)
{
    return range.least <= number && number <= range.most;
}

bool is_switch(const ValueType &, const std::string &value)
{
    std::string key = "switch", text = value;
    const cfg_entry entry = {key.data(), text.data(), nullptr, nullptr};
    return get_bool(&entry, -1, "switch") >= 0;
}

// As get_int64() reads it, but whole.
bool is_number(const ValueType &type, const std::string &value)
{
    char *end;
    errno = 0;
    const long long number = strtoll(value.c_str(), &end, 0);
    return end != value.c_str() && *end == '\0' && errno == 0 && holds(type.range, number);
}

bool is_listed(const ValueType &type, const std::string &value)
{
    return std::find(type.words.begin(), type.words.end(), value) != type.words.end();
}

bool is_text(const ValueType &type, const std::string &value)
{
    return holds(type.range, static_cast<int64_t>(value.size()));
}

// What freadvalue() gives back whole.
bool is_word(const ValueType &type, const std::string &value)
{
    return is_text(type, value) && value.find_first_of(kBetweenWords) == std::string::npos;
}

bool is_address(int family, const std::string &value)
{
    in6_addr address;
    return inet_pton(family, value.c_str(), &address) == 1;
}

bool is_ipv4(const ValueType &, const std::string &value)
{
    return is_address(AF_INET, value);
}

bool is_ipv6(const ValueType &, const std::string &value)
{
    return is_address(AF_INET6, value);
}

bool is_any_address(const ValueType &, const std::string &value)
{
    return is_address(AF_INET, value) || is_address(AF_INET6, value);
}

bool is_network(const ValueType &, const std::string &value)
{
    const size_t slash = std::min(value.find('/'), value.size());
    const std::string address = value.substr(0, slash), length = value.substr(slash);
    const int most = is_address(AF_INET, address) ? 32 : is_address(AF_INET6, address) ? 128 : -1;
    for (int bits = 0; bits <= most; bits++)
        if (length == "/" + std::to_string(bits))
            return true;
    return false;
}

bool is_mac(const ValueType &, const std::string &value)
{
    for (size_t i = 0; i < value.size(); i++)
        if (i % 3 == 2 ? value[i] != ':' : isxdigit(static_cast<unsigned char>(value[i])) == 0)
            return false;
    return value.size() == kMacText;
}

enum class Details { none, range, words };

constexpr struct {
    const char *name;
    decltype(ValueType::takes) takes;
    Details details; // what follows the name
    bool is_secret;
} kTypes[] = {
    {"switch", is_switch, Details::none, false},
    {"number", is_number, Details::range, false},
    {"one of", is_listed, Details::words, false},
    {"text", is_text, Details::range, true},
    {"word", is_word, Details::range, true},
    {"address", is_any_address, Details::none, false},
    {"ipv4", is_ipv4, Details::none, false},
    {"ipv6", is_ipv6, Details::none, false},
    {"network", is_network, Details::none, false},
    {"mac", is_mac, Details::none, false},
};

// "1..13", "1..", "..13", or one number.
Range parse_range(std::string_view text)
{
    Range range;
    const size_t dots = text.find("..");
    const std::string_view from = text.substr(0, dots);
    const std::string_view to = dots == std::string_view::npos ? from : text.substr(dots + 2);
    if ((!from.empty() && !parse_number(from, range.least)) ||
        (!to.empty() && !parse_number(to, range.most)) || (from.empty() && to.empty()) ||
        range.least > range.most)
        refuse(text, "not a range, such as 1..13");
    return range;
}

} // namespace

void refuse(std::string_view what, std::string_view why)
{
    throw std::invalid_argument(std::string(what).append(": ").append(why));
}

ValueType parse_type(std::string_view text)
{
    std::string_view rest = text;
    std::string name(take_word(rest, kBlanks));
    if (name == "one")
        name.append(" ").append(take_word(rest, kBlanks));
    const auto *const row = std::find_if(std::begin(kTypes), std::end(kTypes),
                                         [&](const auto &type) { return name == type.name; });
    if (row == std::end(kTypes))
        refuse(name.empty() ? "type" : name, name.empty() ? "none is told" : "no such type");

    ValueType type = {std::string(text), row->takes, row->is_secret};
    for (auto word = take_word(rest, kBlanks); !word.empty(); word = take_word(rest, kBlanks))
        type.words.emplace_back(word);
    const size_t most = row->details == Details::words   ? type.words.size()
                        : row->details == Details::range ? 1
                                                         : 0;
    if (type.words.size() > most)
        refuse(type.words[most], "not understood here");
    if (row->details == Details::words && type.words.empty())
        refuse(name, "no words follow");
    if (row->details == Details::range && !type.words.empty())
        type.range = parse_range(type.words[0]);
    return type;
}

} // namespace ctl

#include "base/options.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "base/numbers.h"
#include "base/output.h"

namespace ctl {
namespace {

[[noreturn]] void refuse(const Option &option, const char *text, const std::string &what)
{
    throw Misuse(std::string(option.label()) + ": \"" + text + "\" is not " + what);
}

// The place of a word in "this|that|those", -1 when it is none of them.
int place_of(std::string_view word, std::string_view list)
{
    for (int place = 0;; place++) {
        const size_t end = list.find('|');
        if (word == list.substr(0, end))
            return place;
        if (end == list.npos)
            return -1;
        list.remove_prefix(end + 1);
    }
}

} // namespace

const char *Option::long_name() const
{
    const char *const dashes = strstr(name, "--");
    return dashes ? dashes + 2 : nullptr;
}

const char *Option::label() const
{
    const char *const comma = strchr(name, ',');
    return comma ? comma + 1 : name;
}

void store(const Option &, const char *text, std::string &value)
{
    value = text;
}

void store(const Option &, const char *, bool &value)
{
    value = true;
}

void store(const Option &option, const char *text, double &value)
{
    double number;
    if (!parse_number(text, number) || number < option.least || number > option.most)
        refuse(option, text, format("a number from %g to %g", option.least, option.most));
    value = number;
}

void store_integer(const Option &option, const char *text, int64_t least, uint64_t most,
                   uint64_t &bits)
{
    const std::string_view list = option.form;
    if (list.find('|') == list.npos) {
        if (!parse_integer(text, least, most, bits))
            refuse(option, text,
                   "a whole number from " + std::to_string(least) + " to " + std::to_string(most));
        return;
    }
    const auto last = static_cast<uint64_t>(std::count(list.begin(), list.end(), '|'));
    if (const int place = place_of(text, list); place >= 0)
        bits = static_cast<uint64_t>(place);
    else if (!parse_integer(text, 0, last, bits))
        refuse(option, text, "one of " + std::string(list));
}

} // namespace ctl

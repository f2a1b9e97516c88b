// avg.cpp - the mean of numbers on standard input, and which of them are outliers.
#include <zorv/avg.h>

#include <vector>

#include "base/cli.h"
#include "base/numbers.h"
#include "base/text_file.h"
#include "base/words.h"

namespace ctl {
namespace {

using Numbers = std::vector<int64_t>;

Numbers read_numbers(std::string_view text)
{
    Numbers numbers;
    for (std::string_view word; !(word = take_word(text)).empty();)
        if (!parse_number(word, numbers.emplace_back()))
            throw Failure(Exit::usage, std::string(word) + ": not a whole number of 64 bits");
    return numbers;
}

// What is in `all` and not, in its order, in `kept`.
Value missing(const Numbers &all, const Numbers &kept)
{
    Value list = Value::list();
    auto next = kept.begin();
    for (const int64_t number : all) {
        if (next != kept.end() && *next == number)
            ++next;
        else
            list.add(number);
    }
    return list;
}

void average(const NoArgs &, Reply &reply)
{
    const Numbers all = read_numbers(read_input("-"));
    Numbers kept = all;
    int64_t mean = 0;
    uint64_t count = kept.size();
    if (zorv_remove_outliers(kept.data(), &mean, &count) != 0)
        throw Failure(Exit::no, "standard input: no number");
    kept.resize(count);
    reply.pairs(Value::object()
                    .set("count", all.size())
                    .set("mean", mean)
                    .set("kept", count)
                    .set("mean_of_kept", zorv_avg_array(kept.data(), count))
                    .set("outliers", missing(all, kept)));
}

constexpr Verb kVerbs[] = {
    verb<average>("avg", "Tell the mean of the whole numbers on standard input, and the outliers",
                  "zorvctl avg < times"),
};

} // namespace

extern const Family avg_family = {nullptr, nullptr, {kVerbs}};

} // namespace ctl

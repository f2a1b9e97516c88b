// avg.cpp - the mean of numbers on standard input, and which of them are outliers.
#include <zorv/avg.h>

#include <charconv>
#include <iostream>
#include <vector>

#include "base/cli.h"
#include "families.h"

namespace ctl {
namespace {

struct NoArgs {};

using Numbers = std::vector<int64_t>;

Numbers read_numbers(std::istream &input)
{
    Numbers numbers;
    std::string word;
    while (input >> word) {
        int64_t number;
        const char *const end = word.data() + word.size();
        const auto [stop, error] = std::from_chars(word.data(), end, number);
        if (error != std::errc() || stop != end)
            throw Failure(Exit::usage, word + ": not a whole number of 64 bits");
        numbers.push_back(number);
    }
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
    const Numbers all = read_numbers(std::cin);
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

} // namespace

void add_avg(Cli &cli)
{
    cli.root().verb("avg", "Tell the mean of the whole numbers on standard input, and the outliers",
                    "zorvctl avg < times", average);
}

} // namespace ctl

// cli.h - the command line: families of verbs as tables, and running the verb that is named.
#ifndef ZORVCTL_CLI_H
#define ZORVCTL_CLI_H

#include <array>
#include <span>
#include <utility>
#include <vector>

#include "base/options.h"
#include "base/output.h"

namespace ctl {

// What the command line gives a verb.
class Given {
public:
    void add(const Option &option, const char *text) { values_.emplace_back(&option, text); }
    bool has(const Option &option) const;
    void store(void *arguments) const; // throws what is wrong with a value

private:
    std::vector<std::pair<const Option *, const char *>> values_;
};

// A verb: one row of its family's table, made by verb().
struct Verb {
    const char *name;
    const char *description;
    const char *example; // a whole command line, or several in lines
    std::span<const Option> options;
    void (*run)(const Given &given, Reply &reply);
};

struct NoArgs {};

template <class Arguments>
Arguments arguments_of(void (*)(const Arguments &, Reply &));

// A verb that `Run` does: a function of its arguments, which the options fill, and the reply.
template <auto Run>
constexpr Verb verb(const char *name, const char *description, const char *example,
                    std::span<const Option> options = {})
{
    using Arguments = decltype(arguments_of(Run));
    for (const Option &option : options)
        if (option.arguments != &kTypeOf<Arguments>)
            throw "an option of other arguments"; // does not compile
    return {name, description, example, options, [](const Given &given, Reply &reply) {
                Arguments arguments;
                given.store(&arguments);
                Run(arguments, reply);
            }};
}

struct Family {
    const char *name; // nullptr of verbs that stand alone
    const char *description;
    std::array<std::span<const Verb>, 6> verbs; // one or more tables of them
};

// Parses the command line, runs the verb that it names and writes the reply. Returns the exit
// status.
int run(std::span<const Family *const> families, int argc, char **argv);

} // namespace ctl

#endif

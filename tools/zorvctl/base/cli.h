// cli.h - the command line: families of verbs, the options they share, and running one.
#ifndef ZORVCTL_CLI_H
#define ZORVCTL_CLI_H

#include <functional>
#include <memory>
#include <string>

#include "base/options.h"
#include "base/output.h"

namespace ctl {

// What declaring a verb gives: the place for its options, and the arguments they fill.
template <class Arguments>
struct Verb {
    Options app;
    Arguments &args;
};

class Family;

class Cli {
public:
    Cli();
    ~Cli();

    Family family(const char *name, const char *description);

    // For a verb that stands alone.
    Family root();

    // Parses the command line, runs the chosen verb and writes its reply. Returns the exit status.
    int run(int argc, const char *const *argv);

private:
    friend class Family;

    CLI::App *add(CLI::App &parent, const char *name, const char *description);
    void add_common_options(CLI::App &app);
    Reply answer(int argc, const char *const *argv, bool json);

    std::unique_ptr<CLI::App> root_;
    std::function<void(Reply &)> chosen_;
    int verbosity_ = 0;
};

class Family {
public:
    Family(Cli &cli, CLI::App &app) : cli_(cli), app_(app) {}

    // Declares a verb. `run` gets the arguments when the command line names the verb; `example` is
    // a whole command line, or several in lines, shown by --help.
    template <class Arguments>
    Verb<Arguments> verb(const char *name, const char *description, const std::string &example,
                         void (*run)(const Arguments &, Reply &))
    {
        auto args = std::make_shared<Arguments>();
        return {add(name, description, example, [run, args](Reply &reply) { run(*args, reply); }),
                *args};
    }

private:
    Options add(const char *name, const char *description, const std::string &example,
                std::function<void(Reply &)> run);

    Cli &cli_;
    CLI::App &app_;
};

} // namespace ctl

#endif

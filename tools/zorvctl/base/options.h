// options.h - how a verb declares its options: the parser's own calls, without its header, which
// costs seconds in every source that reads it.
#ifndef ZORVCTL_OPTIONS_H
#define ZORVCTL_OPTIONS_H

#include <functional>
#include <map>
#include <string>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace ctl {

// A declared option, flag or positional argument. What is said of it returns it, for more.
class Option {
public:
    explicit Option(CLI::Option *option) : option_(option) {}

    // Declarations read like the parser's own: add_option(...)->required()->check(...).
    const Option *operator->() const { return this; }

    Option required() const;
    Option needs(Option other) const;
    Option excludes(Option other) const;

    // The heading that --help lists it under.
    Option group(const char *heading) const;

    // Of a vector: whether one "--option" takes all the values that follow it.
    Option allow_extra_args(bool allowed) const;

    // Shows the value that it has now in --help, as the default.
    Option capture_default_str() const;

    // No "--flag=false".
    Option disable_flag_override() const;

    // `fault` says what is wrong with a value, "" if nothing is; --help shows `form`.
    Option check(std::string (*fault)(const std::string &value), const char *form) const;
    Option check_range(double least, double most) const;
    Option check_not_negative() const;

    // Takes one of these words, or its number.
    Option transform(const std::map<std::string, int> &words) const;

private:
    CLI::Option *option_; // the parser's
};

// Where the options of a verb are declared. The values are filled before the verb runs.
class Options {
public:
    explicit Options(CLI::App *app) : app_(app) {}

    // For text, integers, double, and optionals and vectors of them: options.cpp has the list.
    template <class T>
    Option add_option(const char *name, T &value, const char *description) const;

    Option add_flag(const char *name, bool &value, const char *description) const;
    Option add_flag_callback(const char *name, const std::function<void()> &given,
                             const char *description) const;
    Option get_option(const char *name) const;

private:
    CLI::App *app_; // the parser's
};

} // namespace ctl

#endif

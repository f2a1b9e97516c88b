#include "base/options.h"

#include <cstdint>
#include <optional>
#include <vector>

#include <CLI/CLI.hpp>

namespace ctl {

Option Option::required() const
{
    return Option(option_->required());
}

Option Option::needs(Option other) const
{
    return Option(option_->needs(other.option_));
}

Option Option::excludes(Option other) const
{
    return Option(option_->excludes(other.option_));
}

Option Option::group(const char *heading) const
{
    return Option(option_->group(heading));
}

Option Option::allow_extra_args(bool allowed) const
{
    return Option(option_->allow_extra_args(allowed));
}

Option Option::capture_default_str() const
{
    return Option(option_->capture_default_str());
}

Option Option::disable_flag_override() const
{
    return Option(option_->disable_flag_override());
}

Option Option::check(std::string (*fault)(const std::string &value), const char *form) const
{
    return Option(option_->check(CLI::Validator(fault, form)));
}

Option Option::check_range(double least, double most) const
{
    return Option(option_->check(CLI::Range(least, most)));
}

Option Option::check_not_negative() const
{
    return Option(option_->check(CLI::NonNegativeNumber));
}

Option Option::transform(const std::map<std::string, int> &words) const
{
    return Option(option_->transform(CLI::CheckedTransformer(words)));
}

template <class T>
Option Options::add_option(const char *name, T &value, const char *description) const
{
    return Option(app_->add_option(name, value, description));
}

// The kinds of values; one that is missing here does not link. They are the fundamental types,
// because size_t and uint64_t are the same type on some devices only.
template Option Options::add_option(const char *, std::string &, const char *) const;
template Option Options::add_option(const char *, uint16_t &, const char *) const;
template Option Options::add_option(const char *, int &, const char *) const;
template Option Options::add_option(const char *, unsigned &, const char *) const;
template Option Options::add_option(const char *, long &, const char *) const;
template Option Options::add_option(const char *, unsigned long &, const char *) const;
template Option Options::add_option(const char *, unsigned long long &, const char *) const;
template Option Options::add_option(const char *, double &, const char *) const;
template Option Options::add_option(const char *, std::optional<std::string> &, const char *) const;
template Option Options::add_option(const char *, std::optional<int> &, const char *) const;
template Option Options::add_option(const char *, std::optional<unsigned> &, const char *) const;
template Option Options::add_option(const char *, std::optional<long long> &, const char *) const;
template Option Options::add_option(const char *, std::optional<unsigned long> &,
                                    const char *) const;
template Option Options::add_option(const char *, std::optional<unsigned long long> &,
                                    const char *) const;
template Option Options::add_option(const char *, std::vector<std::string> &, const char *) const;
template Option Options::add_option(const char *, std::vector<uint16_t> &, const char *) const;

Option Options::add_flag(const char *name, bool &value, const char *description) const
{
    return Option(app_->add_flag(name, value, description));
}

Option Options::add_flag_callback(const char *name, const std::function<void()> &given,
                                  const char *description) const
{
    return Option(app_->add_flag_callback(name, given, description));
}

Option Options::get_option(const char *name) const
{
    return Option(app_->get_option(name));
}

} // namespace ctl

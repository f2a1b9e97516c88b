// options.h - the tables in which verbs declare their options, and what fills arguments by them.
#ifndef ZORVCTL_OPTIONS_H
#define ZORVCTL_OPTIONS_H

#include <concepts>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace ctl {

// The member of an `Arguments` that a pointer to member tells of.
template <auto Member>
struct MemberOf;
template <class A, class T, T A::*Member>
struct MemberOf<Member> {
    using Arguments = A;
    using Type = T;
};

// Something that has an address of its own for each type of arguments.
template <class Arguments>
constexpr char kTypeOf = 0;

// An option, a flag or a positional argument: one row of a verb's table, made by option() or
// choice(). What is said of it afterwards gives the row that says so, too.
struct Option {
    // NOLINTBEGIN(misc-non-private-member-variables-in-classes): it is a row
    const char *name; // "--set", "-n", "-f,--file"; of a positional argument "FILE"
    const char *description;
    const char *form; // what --help calls a value; nullptr of a flag
    // Puts a value, or nullptr of a flag, into the arguments; throws what is wrong with it.
    void (*store)(const Option &option, void *arguments, const char *text);
    const void *arguments; // their kTypeOf

    const char *heading = nullptr; // that --help lists it under; of one heading only one is given
    const char *needed = nullptr;  // the name of another option
    const char *excluded[2] = {};
    double least = -std::numeric_limits<double>::infinity();
    double most = std::numeric_limits<double>::infinity();
    bool many = false; // takes several values: each "--option VALUE", or all positional words left
    bool is_required = false;
    // NOLINTEND(misc-non-private-member-variables-in-classes)

    constexpr Option required() const
    {
        Option row = *this;
        row.is_required = true;
        return row;
    }
    constexpr Option one_of(const char *group) const
    {
        Option row = *this;
        row.heading = group;
        return row;
    }
    constexpr Option needs(const char *other) const
    {
        Option row = *this;
        row.needed = other;
        return row;
    }
    constexpr Option excludes(const char *other, const char *another = nullptr) const
    {
        Option row = *this;
        row.excluded[0] = other;
        row.excluded[1] = another;
        return row;
    }
    // Of a double.
    constexpr Option range(double from, double to) const
    {
        Option row = *this;
        row.least = from;
        row.most = to;
        return row;
    }
    // Of an int: it takes one of these words, "this|that|those", or its number from 0 on.
    constexpr Option words(const char *list) const
    {
        Option row = *this;
        row.form = list;
        return row;
    }

    bool is_positional() const { return name[0] != '-'; }
    bool is_flag() const { return !form; }
    char short_name() const { return name[0] == '-' && name[1] != '-' ? name[1] : '\0'; }
    const char *long_name() const; // without its dashes; nullptr when it has none
    const char *label() const;     // the longest of its names, for messages
};

void store(const Option &option, const char *text, std::string &value);
void store(const Option &option, const char *text, bool &value);
void store(const Option &option, const char *text, double &value);
void store_integer(const Option &option, const char *text, int64_t least, uint64_t most,
                   uint64_t &bits);

template <std::integral T>
void store(const Option &option, const char *text, T &value)
{
    using Limits = std::numeric_limits<T>;
    uint64_t bits = 0;
    store_integer(option, text, Limits::min(), static_cast<uint64_t>(Limits::max()), bits);
    value = static_cast<T>(bits);
}

template <class T>
void store(const Option &option, const char *text, std::optional<T> &value)
{
    store(option, text, value.emplace());
}

template <class T>
void store(const Option &option, const char *text, std::vector<T> &values)
{
    store(option, text, values.emplace_back());
}

template <class T>
struct Form { // of numbers
    static constexpr const char *kName = "NUMBER";
    static constexpr bool kMany = false;
};
template <>
struct Form<bool> {
    static constexpr const char *kName = nullptr;
    static constexpr bool kMany = false;
};
template <>
struct Form<std::string> {
    static constexpr const char *kName = "TEXT";
    static constexpr bool kMany = false;
};
template <class T>
struct Form<std::optional<T>> : Form<T> {
};
template <class T>
struct Form<std::vector<T>> : Form<T> {
    static constexpr bool kMany = true;
};

// What fills a member: a flag for bool; an option, or without dashes a positional argument, for
// texts, numbers, and optionals and vectors of them. The second parameter is there because GCC
// takes members alone for the same where types of two unnamed namespaces have the same name.
template <auto Member, class Arguments = typename MemberOf<Member>::Arguments>
constexpr Option option(const char *name, const char *description)
{
    using Type = typename MemberOf<Member>::Type;
    return {.name = name,
            .description = description,
            .form = Form<Type>::kName,
            .store =
                [](const Option &row, void *arguments, const char *text) {
                    store(row, text, static_cast<Arguments *>(arguments)->*Member);
                },
            .arguments = &kTypeOf<Arguments>,
            .many = Form<Type>::kMany};
}

// A flag that sets a member to a value.
template <auto Member, auto value, class Arguments = typename MemberOf<Member>::Arguments>
constexpr Option choice(const char *name, const char *description)
{
    return {.name = name,
            .description = description,
            .form = nullptr,
            .store = [](const Option &, void *arguments,
                        const char *) { static_cast<Arguments *>(arguments)->*Member = value; },
            .arguments = &kTypeOf<Arguments>};
}

} // namespace ctl

#endif

#include "base/command_line.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include <getopt.h>

#include "base/words.h"

namespace ctl {
namespace {

constexpr int kFirstCode = 256; // of options in the parser's table, behind all characters
constexpr int kPositional = 1;  // the parser's code of a word that is no option

// The known word that is most like one that is not known.
class Suggestion {
public:
    explicit Suggestion(std::string_view word) : word_(word), best_(1 + word.size() / 3) {}

    void consider(const char *known)
    {
        const size_t far = distance(word_, known);
        if (far > best_ || (known_ && far == best_))
            return;
        best_ = far;
        known_ = known;
    }
    std::string text(const char *dashes = "") const
    {
        return known_ ? std::string("; did you mean ") + dashes + known_ + "?" : "";
    }

private:
    std::string_view word_;
    size_t best_;
    const char *known_ = nullptr;
};

// Finds the verb, and keeps the words that do not name it.
class VerbFinder {
public:
    VerbFinder(Families families, CommandLine &line) : families_(families), line_(line) {}

    void find(int argc, char **argv)
    {
        words_.push_back(argv[0]);
        int at = 1;
        for (; at < argc && !is_complete() && strcmp(argv[at], "--") != 0; at++) {
            if (argv[at][0] == '-' && argv[at][1])
                words_.push_back(argv[at]);
            else
                take(argv[at]);
        }
        own_ = words_.size();
        words_.insert(words_.end(), argv + std::min(at, argc), argv + argc);
        words_.push_back(nullptr);
    }

    std::vector<char *> &words() { return words_; }

    // Where the words behind the verb begin.
    size_t own() const { return own_; }

private:
    bool is_complete() const { return line_.verb || !line_.lost.empty(); }

    // What the next word may name: families and verbs that stand alone, or verbs of a family.
    template <class Visitor>
    void visit(Visitor visitor) const
    {
        for (const Family *family : families_) {
            if (line_.family && line_.family != family)
                continue;
            if (!line_.family && family->name) {
                visitor(family->name, family, nullptr);
                continue;
            }
            for (const auto &table : family->verbs)
                for (const Verb &verb : table)
                    visitor(verb.name, family, &verb);
        }
    }

    void take(const char *word)
    {
        if (!line_.family && !line_.help && strcmp(word, "help") == 0) {
            line_.help = true;
            return;
        }
        const Family *found = nullptr;
        visit([&](const char *name, const Family *family, const Verb *verb) {
            if (strcmp(name, word) != 0)
                return;
            found = family;
            line_.verb = verb;
        });
        if (found) {
            line_.family = found;
            return;
        }
        Suggestion suggestion(word);
        visit([&](const char *name, const Family *, const Verb *) { suggestion.consider(name); });
        line_.lost = std::string("unknown word: ") + word + suggestion.text();
    }

    Families families_;
    CommandLine &line_;
    std::vector<char *> words_;
    size_t own_ = 0;
};

// Reads the words by the options of the verb and those that all take.
class OptionParser {
public:
    explicit OptionParser(CommandLine &line) : line_(line), short_("-:") // in order, without words
    {
        if (line.verb)
            for (const Option &option : line.verb->options)
                add(option);
        for (const Option &option : kCommonOptions)
            add(option);
        if (!line.family)
            add(kVersionOption);
        for (const char digit : std::string_view("0123456789")) // of negative numbers
            (short_ += digit) += "::";
        long_.push_back({});
    }

    void parse(std::vector<char *> &words, size_t own)
    {
        opterr = 0;
        optind = 0; // begin anew
        const int count = static_cast<int>(words.size()) - 1;
        for (int at = 1;; at = optind) {
            const int code =
                getopt_long(count, words.data(), short_.c_str(), long_.data(), nullptr);
            if (code == -1)
                break;
            const bool behind = static_cast<size_t>(at) >= own;
            if (behind)
                fault(line_.lost);
            take(code, words[static_cast<size_t>(at)], behind);
        }
        fault(line_.lost);
        for (int at = optind; at < count; at++)
            take_positional(words[static_cast<size_t>(at)]);
    }

    void check()
    {
        if (!line_.verb)
            return;
        for (const Option &option : line_.verb->options) {
            if (!line_.given.has(option)) {
                if (option.is_required)
                    fault(std::string(option.label()) + " is required");
                continue;
            }
            if (option.needed && !line_.given.has(named(option.needed)))
                fault(std::string(option.label()) + " requires " + option.needed);
            for (const char *name : option.excluded)
                if (name && line_.given.has(named(name)))
                    fault(std::string(option.label()) + " excludes " + name);
            for (const Option *other = &option + 1; option.heading && other <= last(); other++)
                if (other->heading == option.heading && line_.given.has(*other))
                    fault(std::string(option.label()) + " excludes " + other->label());
        }
    }

private:
    const Option *last() const { return &line_.verb->options.back(); }

    const Option &named(const char *name) const
    {
        return **std::find_if(options_.begin(), options_.end(), [name](const Option *option) {
            return strcmp(option->name, name) == 0;
        });
    }

    void add(const Option &option)
    {
        const int code = kFirstCode + static_cast<int>(options_.size());
        options_.push_back(&option);
        if (option.is_positional())
            return;
        if (const char letter = option.short_name())
            (short_ += letter) += option.is_flag() ? "" : ":";
        if (const char *const name = option.long_name())
            long_.push_back(
                {name, option.is_flag() ? no_argument : required_argument, nullptr, code});
    }

    void fault(const std::string &text)
    {
        if (line_.fault.empty())
            line_.fault = text;
    }

    // The option of a code, or of a letter; nullptr when there is none.
    const Option *find(int code) const
    {
        if (code >= kFirstCode)
            return options_[static_cast<size_t>(code - kFirstCode)];
        const auto found =
            std::find_if(options_.begin(), options_.end(), [code](const Option *row) {
                return code != 0 && row->short_name() == code;
            });
        return found == options_.end() ? nullptr : *found;
    }

    // `own`: the word stands behind the verb, where its options may stand.
    void take(int code, const char *word, bool own)
    {
        if (code == kPositional)
            return take_positional(optarg);
        const bool whole = strncmp(word, "--", 2) == 0;
        const bool failed = code == '?' || code == ':';
        const Option *const option = find(failed ? optopt : code);
        if (!option && word[1] == code)
            return take_positional(word); // a negative number
        if (!option || (whole && !is_named(*option, word)))
            return unknown(whole ? word : format("-%c", failed ? optopt : code));
        if (!own && !is_common(*option))
            return fault(std::string(option->label()) + " belongs behind the verb");
        if (code == ':')
            return fault(std::string(option->label()) + ": the value is missing");
        if (code == '?')
            return fault(std::string(option->label()) + " takes no value");
        take_option(*option);
    }

    // The parser takes a beginning of a name for the name, which another option may spoil one day.
    static bool is_named(const Option &option, const char *word)
    {
        const size_t length = strcspn(word, "=") - 2;
        return strlen(option.long_name()) == length;
    }

    bool is_common(const Option &option) const
    {
        return std::any_of(std::begin(kCommonOptions), std::end(kCommonOptions),
                           [&option](const Option &row) { return &row == &option; }) ||
               &option == &kVersionOption;
    }

    void unknown(const std::string &word)
    {
        const std::string name = word.substr(0, word.find('='));
        Suggestion suggestion(std::string_view(name).substr(std::min<size_t>(name.size(), 2)));
        for (const Option *option : options_)
            if (option->long_name() && name.starts_with("--"))
                suggestion.consider(option->long_name());
        fault("unknown option: " + name + suggestion.text("--"));
    }

    void take_option(const Option &option)
    {
        if (&option == &kVersionOption)
            line_.version = true;
        else if (&option == &kCommonOptions[0])
            line_.help = true;
        else if (&option == &kCommonOptions[1])
            line_.json = true;
        else if (&option == &kCommonOptions[2])
            line_.no_header = true;
        else if (&option == &kCommonOptions[3])
            line_.verbosity++;
        else if (!option.is_flag() && !option.many && line_.given.has(option))
            fault(std::string(option.label()) + ": given twice");
        else
            line_.given.add(option, optarg);
    }

    void take_positional(const char *word)
    {
        if (!line_.verb)
            return; // it is missing, which is told
        for (const Option &option : line_.verb->options)
            if (option.is_positional() && (option.many || !line_.given.has(option)))
                return line_.given.add(option, word);
        fault(std::string("not expected: ") + word);
    }

    CommandLine &line_;
    std::vector<const Option *> options_;
    std::string short_;
    std::vector<struct ::option> long_;
};

constexpr Option common(const char *name, const char *description)
{
    return {.name = name,
            .description = description,
            .form = nullptr,
            .store = nullptr,
            .arguments = nullptr,
            .many = true};
}

} // namespace

// take_option() knows their places.
constexpr Option kCommonOptions[4] = {
    common("-h,--help", "Show how it is used, with an example"),
    common("--json", "Answer with exactly one JSON document"),
    common("--no-header", "Show tables without their line of titles"),
    common("-v,--verbose", "Show more of the library's messages; may be repeated"),
};
constexpr Option kVersionOption = common("--version", "Show the version and the source revision");

CommandLine parse_command_line(Families families, int argc, char **argv)
{
    CommandLine line;
    VerbFinder finder(families, line);
    finder.find(argc, argv);
    OptionParser parser(line);
    parser.parse(finder.words(), finder.own());
    parser.check();
    if (line.fault.empty() && !line.verb)
        line.fault = "A subcommand is required";
    return line;
}

std::string command_of(const CommandLine &line)
{
    std::string command = "zorvctl";
    if (line.family && line.family->name)
        (command += ' ') += line.family->name;
    if (line.verb)
        (command += ' ') += line.verb->name;
    return command;
}

} // namespace ctl

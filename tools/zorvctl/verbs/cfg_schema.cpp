#include "cfg_schema.h"

#include <algorithm>
#include <stdexcept>

#include "base/output.h"
#include "base/text_file.h"
#include "base/words.h"
#include "cfg.h"
#include "core/text_tools.h"

namespace ctl {
namespace {

constexpr std::string_view kIndex = "<n>";
constexpr char kBlanks[] = " \t";
constexpr char kNoKey[] = "not a key, with <n> for an index";
constexpr size_t kIndexDigits = 9; // those of an int
constexpr size_t kLongest = 255;   // bytes of a pattern: what is looked for in each key

bool is_number(std::string_view part)
{
    return !part.empty() && part.find_first_not_of("0123456789") == std::string_view::npos;
}

// An index as daemons write it when they look for a key.
bool is_index(std::string_view part)
{
    return is_number(part) && part[0] != '0' && part.size() <= kIndexDigits;
}

// Takes the next part of a key off it, with the "." behind.
std::string_view take_part(std::string_view &key)
{
    const std::string_view part = key.substr(0, key.find('.'));
    key.remove_prefix(std::min(part.size() + 1, key.size()));
    return part;
}

// Numbers are all "<n>" or all themselves, so that two look-ups find the rule of any key.
void check_pattern(std::string_view pattern)
{
    if (pattern.size() > kLongest)
        refuse("key", "more than 255 bytes");
    if (pattern.empty() || pattern.ends_with('.'))
        refuse(pattern, kNoKey);
    bool any = false, fixed = false;
    for (std::string_view rest = pattern; !rest.empty();) {
        const std::string_view part = take_part(rest);
        any = any || part == kIndex;
        fixed = fixed || is_number(part);
        if (part.empty() ||
            (part != kIndex && part.find_first_of("<>*=") != std::string_view::npos))
            refuse(pattern, kNoKey);
    }
    if (any && fixed)
        refuse(pattern, "a number beside <n>");
}

// Takes the text up to the next comma off the line.
std::string_view take_clause(std::string_view &line)
{
    const std::string_view clause = line.substr(0, line.find(','));
    line.remove_prefix(std::min(clause.size() + 1, line.size()));
    return zorv::strip_blanks(clause);
}

void check_default(const ValueType &type, std::string_view value)
{
    if (!type.takes(type, std::string(value)))
        refuse(value, "the default does not fit the type");
}

// What follows the type.
void add_clauses(KeyRule &rule, std::string_view rest)
{
    bool has_default = false;
    while (!zorv::strip_blanks(rest).empty()) {
        const std::string_view before = rest;
        std::string_view clause = take_clause(rest);
        const std::string_view word = take_word(clause, kBlanks);
        const std::string_view more = zorv::strip_blanks(clause);
        if (word == "deprecated") { // up to the end, as a sentence may have commas
            rule.deprecated = zorv::strip_blanks(before);
            return;
        }
        if (word == "required" && more.empty())
            rule.required = true;
        else if (word == "default" && !more.empty())
            check_default(rule.type, more);
        else
            refuse(word.empty() ? "," : word, "not required, default VALUE or deprecated");
        has_default = has_default || word == "default";
        if (rule.required && has_default)
            refuse(rule.pattern, "a required key has no default");
    }
}

} // namespace

KeyForm key_form(std::string_view text)
{
    KeyForm form = {std::string(text), {}, {}};
    for (std::string_view rest = text; !rest.empty();) {
        const std::string_view part = take_part(rest);
        form.pattern += is_index(part) ? kIndex : part;
        const auto end = static_cast<size_t>(part.data() + part.size() - text.data());
        if (is_index(part))
            form.indexes.emplace_back(end, form.pattern.size());
        if (end < text.size())
            form.pattern += '.';
    }
    return form;
}

Schema::Schema(std::string_view text, const std::string &path)
{
    for (size_t number = 1; !text.empty(); number++) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        try {
            add_line(zorv::strip(line, zorv::is_white));
        } catch (const std::invalid_argument &fault) {
            throw Failure(Exit::failed, "schema", path + format(":%zu: ", number) + fault.what());
        }
    }
}

void Schema::add_line(std::string_view line)
{
    if (line.empty() || line.front() == '#')
        return;
    if (line.find('\0') != std::string_view::npos)
        refuse("line", "a NUL byte");
    const std::string_view pattern = take_word(line, kBlanks);
    if (pattern.ends_with('*'))
        return add_area(pattern, zorv::strip_blanks(line));
    check_pattern(pattern);
    KeyRule rule = {std::string(pattern), folded(key_form(pattern).pattern),
                    parse_type(take_clause(line))};
    add_clauses(rule, line);
    add_rule(std::move(rule));
}

// "radio.*", or "*" for all keys.
void Schema::add_area(std::string_view pattern, std::string_view word)
{
    const std::string text(pattern);
    const std::string area = text == "*" ? "" : text.substr(0, text.rfind(".*"));
    if (text != "*")
        check_pattern(area);
    if (key_form(area).pattern != area)
        refuse(text, "a number, where only <n> may stand");
    if (word != "closed" && word != "open")
        refuse(text, "neither closed nor open");
    if (!areas_.emplace(folded(area), word == "closed").second)
        refuse(text, "told before");
    longest_prefix_ = std::max(longest_prefix_, area.size());
}

void Schema::add_rule(KeyRule rule)
{
    const std::string name = folded(rule.pattern);
    if (!index_.emplace(name, rules_.size()).second)
        refuse(rule.pattern, "told before");
    if (rule.required) {
        const size_t last = name.rfind(kIndex);
        const size_t end = last == std::string::npos ? 0 : last + kIndex.size();
        const auto [group, added] = required_index_.emplace(name.substr(0, end), required_.size());
        if (added)
            required_.emplace_back();
        required_[group->second].push_back(rule.pattern.substr(end));
        longest_prefix_ = std::max(longest_prefix_, end);
    }
    rules_.push_back(std::move(rule));
}

const KeyRule *Schema::find(const KeyForm &form) const
{
    if (form.key.find('<') != std::string::npos) // it would pass for a pattern
        return nullptr;
    auto found = index_.find(folded(form.key));
    if (found == index_.end())
        found = index_.find(folded(form.pattern));
    return found == index_.end() ? nullptr : &rules_[found->second];
}

bool Schema::is_closed(const KeyForm &form) const
{
    std::string area = folded(form.pattern);
    for (size_t from = longest_prefix_; !area.empty(); from = area.size() - 1) {
        const size_t dot = area.rfind('.', from);
        area.resize(dot == std::string::npos ? 0 : dot);
        const auto found = areas_.find(area);
        if (found != areas_.end())
            return found->second == 1;
    }
    return false;
}

const std::vector<std::string> *Schema::required(const std::string &beginning) const
{
    const auto found = required_index_.find(beginning);
    return found == required_index_.end() ? nullptr : &required_[found->second];
}

Schema load_schema(const std::string &path)
{
    return {read_input(path), path};
}

} // namespace ctl

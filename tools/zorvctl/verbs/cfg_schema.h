// cfg_schema.h - what the keys and the values of a configuration shall be.
#ifndef ZORVCTL_CFG_SCHEMA_H
#define ZORVCTL_CFG_SCHEMA_H

#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "base/value.h"
#include "cfg_types.h"

namespace ctl {

enum class Severity { error, warning, note }; // the worst comes first

// Something to say about a line of a configuration.
struct Finding {
    size_t line; // 0 of the file as a whole
    const char *kind;
    Severity severity;
    std::string key; // empty without one
    std::string message;
};

using Numbers = std::unordered_map<std::string, size_t>; // one type for all, as each costs flash
using Findings = std::vector<Finding>;

// What the documents have of them; no line and no key are null.
Value list_of(const Findings &findings);

struct KeyForm {
    std::string key;
    std::string pattern;                            // the key with "<n>" for each index
    std::vector<std::pair<size_t, size_t>> indexes; // where each ends, in the key and the pattern
};

KeyForm key_form(std::string_view key);

struct KeyRule {
    std::string pattern; // as the schema has it
    std::string normal;  // in lower case, with "<n>" for numbers too
    ValueType type;
    std::string deprecated = {}; // "deprecated", and what follows; empty when it is not
    bool required = false;
};

// The rules of a schema file, found by a key in a time that does not depend on their number.
class Schema {
public:
    // Throws a Failure that begins with "path:line: " for a line that makes no sense.
    Schema(std::string_view text, const std::string &path);

    const std::vector<KeyRule> &rules() const { return rules_; }
    const KeyRule *find(const KeyForm &form) const;
    // Whether the schema names all keys beneath the closest area that it tells of.
    bool is_closed(const KeyForm &form) const;
    // The rest of each key that is required as soon as there is a key of that beginning, a pattern
    // up to its last "<n>"; null without such. The empty one begins all keys.
    const std::vector<std::string> *required(const std::string &beginning) const;
    size_t longest_prefix() const { return longest_prefix_; } // of is_closed() and required()

private:
    void add_line(std::string_view line);
    void add_area(std::string_view pattern, std::string_view word);
    void add_rule(KeyRule rule);

    std::vector<KeyRule> rules_;
    Numbers index_; // of rules_, by the pattern in lower case
    Numbers areas_; // 1 closed, 0 open; by the area in lower case, without ".*"
    std::vector<std::vector<std::string>> required_;
    Numbers required_index_; // of required_
    size_t longest_prefix_ = 0;
};

// Reads a schema; "-" is the standard input. What cannot be read or makes no sense throws.
Schema load_schema(const std::string &path);

// Holds the entries of one configuration against a schema, which lives on.
class SchemaCheck {
public:
    explicit SchemaCheck(const Schema &schema);

    // Adds what is wrong with an entry, its value being what the parser makes of it.
    void check(const std::string &key, const std::string &value, size_t line, Findings &findings);
    // Behind the last entry: adds the keys that are required and were not there.
    void check_missing(Findings &findings) const;

private:
    struct Group { // of keys that begin alike, up to an index
        std::string prefix;
        const std::vector<std::string> *required;
        size_t line; // of its first key
    };

    void note_groups(const KeyForm &form, size_t line);
    void check_unknown(const KeyForm &form, size_t line, Findings &findings);
    const KeyRule *most_like(std::string_view pattern, bool closed);

    const Schema &schema_;
    std::vector<Group> groups_;
    Numbers group_lines_; // the same lines, by the prefix in lower case
    Numbers seen_;        // the lines of all keys, in lower case
    size_t effort_;       // left for finding what a key may have meant
};

} // namespace ctl

#endif

// cfg_schema_check.cpp - the entries of a configuration, held against a schema.
#include <algorithm>

#include "base/output.h"
#include "base/words.h"
#include "cfg.h"
#include "cfg_schema.h"

namespace ctl {
namespace {

constexpr size_t kLongestKey = 128; // bytes of a key that may be a slip of another
constexpr size_t kSlips = 2;        // letters that a slip changes: two that change places, too
constexpr size_t kEffort = size_t{1} << 24; // letters compared for one file
constexpr size_t kShown = 64;               // bytes of a value in a message

std::string misfit(const std::string &value, const ValueType &type)
{
    if (type.is_secret)
        return format("a value of length %zu does not fit \"%s\"", value.size(), type.text.c_str());
    return '"' + value.substr(0, kShown) + (value.size() > kShown ? "..." : "") +
           "\" does not fit \"" + type.text + '"';
}

size_t gap(size_t one, size_t other)
{
    return std::max(one, other) - std::min(one, other);
}

} // namespace

Value list_of(const Findings &findings)
{
    constexpr const char *kSeverities[] = {"error", "warning", "note"};
    Value list = Value::list();
    for (const Finding &finding : findings) {
        Value row = Value::object();
        row.set("line", finding.line == 0 ? Value() : Value(finding.line));
        row.set("kind", finding.kind).set("message", finding.message);
        row.set("severity", kSeverities[static_cast<int>(finding.severity)]);
        row.set("key", finding.key.empty() ? Value() : Value(finding.key));
        list.add(row);
    }
    return list;
}

SchemaCheck::SchemaCheck(const Schema &schema) : schema_(schema), effort_(kEffort)
{
    if (const auto *const required = schema.required(""))
        groups_.push_back({"", required, 0});
}

void SchemaCheck::check(const std::string &key, const std::string &value, size_t line,
                        Findings &findings)
{
    const KeyForm form = key_form(key);
    note_groups(form, line);
    seen_.emplace(folded(key), line);
    const KeyRule *const rule = schema_.find(form);
    if (!rule)
        return check_unknown(form, line, findings);

    const auto find = [&](const char *kind, Severity severity, const std::string &what) {
        findings.push_back({line, kind, severity, key, key + ": " + what});
    };
    if (!rule->type.takes(rule->type, value))
        find("bad-value", Severity::error, misfit(value, rule->type));
    if (!rule->deprecated.empty())
        find("deprecated", Severity::warning, rule->deprecated);
    if (rule->pattern != form.key && rule->pattern != form.pattern)
        find("key-case", Severity::warning, "readers that mind case look for " + rule->pattern);
}

// Each group of keys that begin alike, up to an index, must have what is required of it.
void SchemaCheck::note_groups(const KeyForm &form, size_t line)
{
    for (const auto &[end, pattern_end] : form.indexes) {
        if (pattern_end > schema_.longest_prefix())
            break;
        const auto *const required = schema_.required(folded(form.pattern.substr(0, pattern_end)));
        if (!required)
            continue;
        const std::string prefix = form.key.substr(0, end);
        if (group_lines_.emplace(folded(prefix), line).second)
            groups_.push_back({prefix, required, line});
    }
}

void SchemaCheck::check_unknown(const KeyForm &form, size_t line, Findings &findings)
{
    if (folded(form.key).ends_with(".comment")) // a remark; differences leave it out, too
        return;
    const bool closed = schema_.is_closed(form);
    const KeyRule *const meant = most_like(folded(form.pattern), closed);
    if (!closed && !meant)
        return;
    std::string message = form.key + ": not in the schema";
    if (meant)
        message += "; did you mean " + meant->pattern + "?";
    findings.push_back({line, "unknown-key", closed ? Severity::error : Severity::note, form.key,
                        std::move(message)});
}

// The rule whose pattern is a slip or two away. Where other keys are none of the schema's business,
// only one that begins with the same word.
const KeyRule *SchemaCheck::most_like(std::string_view pattern, bool closed)
{
    const KeyRule *best = nullptr;
    size_t nearest = kSlips + 1;
    const std::string_view head = pattern.substr(0, pattern.find('.'));
    if (pattern.size() > kLongestKey)
        return nullptr;
    for (const KeyRule &rule : schema_.rules()) {
        const bool is_near = gap(rule.normal.size(), pattern.size()) <= kSlips &&
                             rule.normal != pattern && // but for a number that the rule has
                             (closed || rule.normal.starts_with(head));
        const size_t cost = 1 + (is_near ? pattern.size() * rule.normal.size() : 0);
        if (cost > effort_)
            return best;
        effort_ -= cost;
        const size_t slips = is_near ? distance(pattern, rule.normal) : nearest;
        if (slips < nearest) {
            nearest = slips;
            best = &rule;
        }
    }
    return best;
}

void SchemaCheck::check_missing(Findings &findings) const
{
    for (const Group &group : groups_)
        for (const std::string &rest : *group.required) {
            const std::string key = group.prefix + rest;
            if (!seen_.contains(folded(key)))
                findings.push_back({group.line, "missing-key", Severity::error, key,
                                    key + ": required, and not there"});
        }
}

} // namespace ctl

#include "cfg.h"

#include <cerrno>
#include <new>
#include <utility>

#include "base/text_file.h"

namespace ctl {
namespace {

// A text that the parser reads alike, and that has a newline at its end. The parser takes the last
// byte of a value for the newline; a value that is empty, or that a NUL byte ends, has no such
// byte.
std::string with_newline(std::string text)
{
    if (text.back() == '\n')
        return text;
    const std::string_view line = std::string_view(text).substr(text.rfind('\n') + 1);
    if (line.find('\0') != line.npos || line.find('=') == line.size() - 1)
        text += '\n';
    else
        text.back() = '\n';
    return text;
}

} // namespace

Config parse_text(std::string text)
{
    if (text.empty())
        return {};
    text = with_newline(std::move(text));
    const zorv::File stream(fmemopen(text.data(), text.size(), "r"));
    if (!stream)
        throw io_failure("configuration", errno);
    Config config(parse_stream(stream.get()));
    if (!feof(stream.get())) // it stopped behind a line for which there was no memory
        throw std::bad_alloc();
    return config;
}

Config load(const std::string &path)
{
    return parse_text(read_input(path));
}

std::string folded(std::string_view key)
{
    std::string lowered(key);
    for (char &c : lowered)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return lowered;
}

FirstValues first_values(const cfg_entry *cfg)
{
    FirstValues values;
    for (; cfg; cfg = cfg->next)
        values.emplace(folded(cfg->key), cfg->value);
    return values;
}

extern const Family cfg_family = {"cfg",
                                  "Query, check and change a configuration file",
                                  {kCfgGet, kCfgQueries, kCfgSet, kCfgDiff, kCfgLint, kCfgApply}};

} // namespace ctl

#include "cfg_settings.h"

#include <cstring>

#include "base/text_file.h"
#include "cfg.h"
#include "cfg_lines.h"

namespace ctl {
namespace {

// Why a line KEY=VALUE could not be read back as it was written; nullptr when it can.
const char *fault_of(std::string_view text)
{
    const std::string_view key = text.substr(0, text.find('='));
    if (key.size() == text.size())
        return "not KEY=VALUE";
    if (text.find('\n') != text.npos)
        return "a line cannot hold a newline";
    if (text.find('\0') != text.npos)
        return "a line cannot hold a NUL byte";
    if (key.empty())
        return "the key is empty";
    if (strchr(" \t", key.front()) || strchr(" \t", key.back()))
        return "the key has blanks around it";
    if (strchr("#\r", key.front()))
        return "the line would be skipped as a comment";
    return nullptr;
}

} // namespace

void Settings::add(Setting setting)
{
    const auto [place, added] = places_.emplace(folded(setting.key), settings_.size());
    if (added)
        settings_.push_back(std::move(setting));
    else
        settings_[place->second].value = std::move(setting.value);
}

void Settings::add(const std::string &text, const std::string &source, Exit exit)
{
    if (const char *const fault = fault_of(text))
        throw Failure(exit, source + ": " + fault + ": " + text);
    const size_t equals = text.find('=');
    add({text.substr(0, equals), text.substr(equals + 1)});
}

void Settings::add_file(const std::string &path)
{
    const std::string text = read_input(path);
    for (CfgLines lines(text); lines.next();) {
        const CfgLine &line = lines.line();
        const std::string place =
            (path == "-" ? "standard input" : path) + format(", line %zu", line.number);
        if (line.text.ends_with('\r'))
            throw Failure(Exit::failed, place + ": the line ends with a carriage return");
        if (!line.text.starts_with('#') && line.text.find_first_not_of(" \t") != line.text.npos)
            add(std::string(line.text), place, Exit::failed);
    }
}

std::optional<size_t> Settings::find(std::string_view key) const
{
    const auto place = places_.find(folded(key));
    if (place == places_.end())
        return std::nullopt;
    return place->second;
}

} // namespace ctl

#include "cloud/script.h"

#include <algorithm>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace cloud {
namespace {

const char *const kIdentities[] = {"trusted", "untrusted", "expired", "misnamed",
                                   "garbage", "reset",     "silent"};

bool read_site(std::istream &line, bool listed, Script &script)
{
    std::string name, word = kIdentities[0];
    line >> name;
    line >> std::ws;
    if (!line.eof())
        line >> word;
    const auto *const found = std::find(std::begin(kIdentities), std::end(kIdentities), word);
    if (name.empty() || found == std::end(kIdentities))
        return false;
    script.sites.push_back({name, static_cast<Identity>(found - kIdentities), listed});
    return true;
}

bool read_name(std::istream &line, Script &script)
{
    Name entry;
    line >> entry.name >> entry.address >> entry.resolver;
    script.names.push_back(entry);
    return !entry.address.empty();
}

bool read_answer(std::istream &line, Script &script)
{
    Answer answer;
    if (!(line >> answer.method >> answer.path >> answer.status))
        return false;
    if (answer.method == "*")
        answer.method.clear();
    std::getline(line >> std::ws, answer.body);
    script.answers.push_back(answer);
    return true;
}

bool read_line(const std::string &text, Script &script)
{
    std::istringstream line(text);
    std::string kind;
    if (!(line >> kind) || kind.starts_with('#'))
        return true;
    if (kind == "site" || kind == "hidden-site")
        return read_site(line, kind == "site", script);
    if (kind == "name")
        return read_name(line, script);
    return kind == "answer" && read_answer(line, script);
}

} // namespace

Script parse_script(const std::string &text)
{
    Script script;
    std::istringstream lines(text);
    std::string line;
    for (int number = 1; std::getline(lines, line); ++number)
        if (!read_line(line, script))
            throw std::runtime_error("line " + std::to_string(number) + ": " + line);
    return script;
}

} // namespace cloud

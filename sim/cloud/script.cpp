#include "cloud/script.h"

#include <algorithm>
#include <cstdlib>
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
    std::string word;
    if (!(line >> answer.method >> answer.path >> word))
        return false;
    if (word == "holding")
        line >> answer.holds >> word;
    answer.status = atoi(word.c_str());
    if (answer.status == 0)
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

bool read_outage(const std::string &text, std::vector<Outage> &outages)
{
    std::istringstream line(text);
    Outage outage;
    std::string status;
    if (!(line >> outage.site >> status >> outage.until_ms))
        return false;
    if (status == "reset")
        outage.answer.conduct = Conduct::hang_up;
    else if (status == "silent")
        outage.answer.conduct = Conduct::silent;
    else
        outage.answer.status = atoi(status.c_str());
    outages.push_back(outage);
    return outage.answer.status != 0;
}

// Hands each line to a reader, which says whether it is one of its lines.
template <class Read>
void read_lines(const std::string &text, Read read)
{
    std::istringstream lines(text);
    std::string line;
    for (int number = 1; std::getline(lines, line); ++number)
        if (!read(line))
            throw std::runtime_error("line " + std::to_string(number) + ": " + line);
}

} // namespace

Script parse_script(const std::string &text)
{
    Script script;
    read_lines(text, [&](const std::string &line) { return read_line(line, script); });
    return script;
}

std::vector<Outage> parse_outages(const std::string &text)
{
    std::vector<Outage> outages;
    read_lines(text, [&](const std::string &line) { return read_outage(line, outages); });
    return outages;
}

} // namespace cloud

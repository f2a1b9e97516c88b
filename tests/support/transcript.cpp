#include "support/transcript.h"

#include <filesystem>
#include <regex>
#include <sstream>

#include <fnmatch.h>

#include "support/device.h"

namespace {

using Lines = std::vector<std::string>;

// The file for what step N prints.
std::string printed(size_t step)
{
    return "/run/transcript/" + std::to_string(step);
}

Lines lines_of(const std::string &text)
{
    std::istringstream stream(text);
    Lines lines;
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

// A line "..." leaves a status to be shown.
bool line_fits(const std::string &line, const std::string &shown)
{
    if (shown == "...")
        return !std::regex_match(line, std::regex(R"(\[[0-9]+\])"));
    std::string pattern = std::regex_replace(shown, std::regex(R"([\[\]*?\\])"), R"(\$&)");
    pattern = std::regex_replace(pattern, std::regex(R"(\.\.\.)"), "*");
    return fnmatch(pattern.c_str(), line.c_str(), 0) == 0;
}

bool fits(const Lines &lines, const Lines &shown, size_t line = 0, size_t at = 0)
{
    if (at == shown.size())
        return line == lines.size();
    const bool any = shown[at] == "...";
    return (any && fits(lines, shown, line, at + 1)) ||
           (line < lines.size() && line_fits(lines[line], shown[at]) &&
            fits(lines, shown, line + 1, at + (any ? 0 : 1)));
}

// What a step has printed, as a transcript has it.
std::string result(size_t step)
{
    const std::string text = Device::read(printed(step));
    const std::string status = Device::read(printed(step) + ".status");
    return text + (text.empty() || text.ends_with('\n') ? "" : "\\\n") + status;
}

struct Transcript : Device {
    std::string file, before;

    Transcript(std::string path, std::string preparation)
        : file(std::move(path)), before(std::move(preparation))
    {
    }

    void TestBody() override
    {
        kernel_processes();
        run_steps(file, read_steps(lines_of(read(file)), 1), before);
    }
};

} // namespace

std::vector<Step> read_steps(const std::vector<std::string> &lines, int first)
{
    std::vector<Step> steps;
    for (const auto &line : lines) {
        if (line.starts_with("$ ")) {
            if (!steps.empty() && !steps.back().shown.empty() && steps.back().shown.back().empty())
                steps.back().shown.pop_back(); // it parts the two
            steps.push_back({first, line.substr(2), {}});
        } else if (line.starts_with("> ") && steps.back().shown.empty()) {
            steps.back().command += "\n" + line.substr(2);
        } else if (!steps.empty()) {
            steps.back().shown.push_back(line);
        }
        ++first;
    }
    return steps;
}

void run_steps(const std::string &file, const std::vector<Step> &steps, const std::string &before)
{
    std::string script = "shown_status() { [ $1 = 0 ] || echo \"[$1]\"; }\n" + before + "\n";
    for (size_t i = 0; i < steps.size(); ++i)
        script += "exec >" + printed(i) + " 2>&1\n" + steps[i].command + "\nshown_status $? >" +
                  printed(i) + ".status\n";
    Device::file(printed(steps.size()), script);
    const auto outcome = Device::run("exec sh " + printed(steps.size()) + " </dev/null");
    EXPECT_EQ(outcome.output + outcome.errors, "") << "before the first command of " << file;
    for (size_t i = 0; i < steps.size(); ++i) {
        if (!Device::exists(printed(i) + ".status")) {
            ADD_FAILURE_AT(file.c_str(), steps[i].line) << "the shell has ended before";
            break;
        }
        const std::string text = result(i);
        if (!fits(lines_of(text), steps[i].shown))
            ADD_FAILURE_AT(file.c_str(), steps[i].line)
                << "what it prints:\n$ "
                << std::regex_replace(steps[i].command, std::regex("\n"), "\n> ") << "\n"
                << text;
    }
}

bool add_transcripts(const char *suite, const std::string &folder, const std::string &before)
{
    for (const auto &entry : std::filesystem::directory_iterator(folder))
        if (entry.path().extension() == ".t")
            testing::RegisterTest(
                suite, entry.path().stem().c_str(), nullptr, nullptr, entry.path().c_str(), 1,
                [path = entry.path().string(), before] { return new Transcript(path, before); });
    return true;
}

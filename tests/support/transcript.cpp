#include "support/transcript.h"

#include "support/device.h"

namespace {

// The file for what step N prints.
std::string printed(size_t step)
{
    return "/run/transcript/" + std::to_string(step);
}

// What a step has printed, as a transcript has it.
std::string result(size_t step)
{
    const std::string text = Device::read(printed(step));
    const std::string status = Device::read(printed(step) + ".status");
    return text + (text.empty() || text.ends_with('\n') ? "" : "\\\n") + status;
}

// An extended regular expression.
std::string pattern_of(const std::vector<std::string> &shown)
{
    const std::regex special(R"([.[\](){}*+?^$|\\])"), dots(R"((\\\.){3})");
    std::string pattern;
    for (const auto &line : shown)
        pattern += line == "..." ? "([^[\n][^\n]*\n|\n)*"
                                 : std::regex_replace(std::regex_replace(line, special, R"(\$&)"),
                                                      dots, "[^\n]*") +
                                       "\n";
    return pattern;
}

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

void run_steps(const std::string &file, const std::vector<Step> &steps, const std::string &unit)
{
    std::string script = "source=" ZORV_SOURCE_DIR " build=" ZORV_BUILD_DIR "\n. $source/tests/" +
                         unit + "\nshown_status() { [ $1 = 0 ] || echo \"[$1]\"; }\n";
    for (size_t i = 0; i < steps.size(); ++i)
        script += "exec >" + printed(i) + " 2>&1\n" + steps[i].command + "\nshown_status $? >" +
                  printed(i) + ".status\n";
    Device::file(printed(steps.size()), script);
    const auto outcome = Device::run("exec sh " + printed(steps.size()) + " </dev/null");
    EXPECT_EQ(outcome.output + outcome.errors, "") << "before the first command of " << file;
    for (size_t i = 0; i < steps.size(); ++i) {
        ASSERT_TRUE(Device::exists(printed(i) + ".status"))
            << file << ":" << steps[i].line << ": the shell has ended before";
        if (!testing::Value(result(i), testing::MatchesRegex(pattern_of(steps[i].shown))))
            ADD_FAILURE_AT(file.c_str(), steps[i].line)
                << "what it prints:\n$ "
                << std::regex_replace(steps[i].command, std::regex("\n"), "\n> ") << "\n"
                << result(i);
    }
}

std::vector<std::string> lines_of(const std::string &file)
{
    std::ifstream stream(file);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

std::vector<std::string> names_in(const std::string &folder, const std::string &ending)
{
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(folder))
        if (entry.path().extension() == ending)
            names.push_back(entry.path().stem());
    return names;
}

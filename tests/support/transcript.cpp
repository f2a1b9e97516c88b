#include "support/transcript.h"

#include "support/device.h"

namespace {

constexpr char kPrinted[] = "/run/transcript/"; // N is what step N prints

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
    for (size_t i = 0; i < steps.size(); ++i) {
        const std::string path = kPrinted + std::to_string(i);
        script += "exec >" + path + " 2>&1\n" + steps[i].command + "\nshown_status $? >" + path +
                  ".status\n";
    }
    Device::file(kPrinted + std::string("script"), script);
    const auto outcome = Device::run(std::string("exec sh </dev/null ") + kPrinted + "script");
    EXPECT_EQ(outcome.output + outcome.errors, "") << "before the first command of " << file;
    for (size_t i = 0; i < steps.size(); ++i) {
        const std::string path = kPrinted + std::to_string(i);
        ASSERT_TRUE(Device::exists(path + ".status"))
            << file << ":" << steps[i].line << ": the shell has ended before";
        std::string text = Device::read(path); // then as a transcript has it
        text += text.empty() || text.ends_with('\n') ? "" : "\\\n";
        text += Device::read(path + ".status");
        if (!testing::Value(text, testing::MatchesRegex(pattern_of(steps[i].shown))))
            ADD_FAILURE_AT(file.c_str(), steps[i].line)
                << "what it prints:\n$ "
                << std::regex_replace(steps[i].command, std::regex("\n"), "\n> ") << "\n"
                << text;
    }
}

std::vector<std::string> names_in(const std::string &folder, const std::string &ending)
{
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(folder))
        if (entry.path().extension() == ending)
            names.push_back(entry.path().stem());
    return names;
}

// What the README and the manual show is so: each command runs, each piece of code is the file's.
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>

#include "support/transcript.h"

#include "support/device.h"

namespace {

constexpr char kTree[] = ZORV_SOURCE_DIR "/";

// A fenced block. A comment "<!-- KEY: VALUE -->" on the line above it is its mark:
//
//   file: PATH        the block is a piece of that file
//   run: site         its commands are for a simulated site: site.sh runs them, not a device
//   not run: REASON   its commands are not for the tests
struct Block {
    int line; // of its fence
    std::string language, key, value;
    std::vector<std::string> lines;
};

struct Page {
    std::vector<Block> blocks;
    std::vector<std::string> code_spans; // outside of blocks
};

Page read_page(const std::string &name)
{
    std::ifstream file(kTree + name);
    Page page;
    bool open = false;
    const std::regex span("`([^`]+)`"), mark("<!-- ([^:]+): (.*) -->");
    std::string line, before;
    for (int number = 1; std::getline(file, line); before = line, ++number) {
        std::smatch match;
        if (line.starts_with("```") && !open) {
            const bool marked = std::regex_match(before, match, mark);
            page.blocks.push_back({number,
                                   line.substr(3),
                                   marked ? match[1].str() : "",
                                   marked ? match[2].str() : "",
                                   {}});
            open = true;
        } else if (line == "```") {
            open = false;
        } else if (open) {
            page.blocks.back().lines.push_back(line);
        } else {
            EXPECT_FALSE(line.starts_with("    ") && before.empty()) << number << ": no fence";
            for (auto rest = line; std::regex_search(rest, match, span); rest = match.suffix())
                page.code_spans.push_back(match[1]);
        }
    }
    EXPECT_TRUE(!open && !before.empty()) << name << " is missing, or ends within a block";
    return page;
}

// Puts the pieces of files together, in the reader's folder. A path with a folder is one of the
// tree's.
void write_pieces(const Page &page)
{
    std::map<std::string, std::string> files;
    for (const auto &block : page.blocks)
        for (size_t i = 0; block.key == "file" && i < block.lines.size(); ++i)
            files[block.value] +=
                (i || files[block.value].empty() ? "" : "\n") + block.lines[i] + "\n";
    for (const auto &[path, whole] : files) {
        Device::file("/tmp/work/" + path.substr(path.rfind('/') + 1), whole);
        EXPECT_EQ(whole, path.find('/') == path.npos ? whole : Device::read(kTree + path)) << path;
    }
}

// A block of `sh`: commands, which may go on behind a backslash, and may end in "# exit status N".
void add_commands(const Block &block, std::vector<Step> &steps)
{
    const std::regex status(".*# exit status ([0-9]+)");
    for (size_t i = 0; i < block.lines.size(); ++i) {
        const int line = block.line + 1 + static_cast<int>(i);
        std::string command = block.lines[i];
        while (command.ends_with('\\'))
            command += "\n" + block.lines[++i];
        std::smatch match;
        steps.push_back({line, command, {"..."}});
        if (std::regex_match(command, match, status))
            steps.back().shown.push_back("[" + match[1].str() + "]");
    }
}

// What is neither run nor a piece of a file has no command in it.
void expect_no_command(const Block &block)
{
    EXPECT_THAT(block.language, testing::AnyOf("text", "c", "cpp", "cmake", "mermaid"));
    const std::regex command(R"(^(\$ )?(zorvctl|zorv-sim|cc|cmake|\./run) .*)");
    for (const auto &line : block.lines)
        EXPECT_FALSE(std::regex_match(line, command)) << line;
}

std::vector<Step> steps_of(const Page &page)
{
    std::vector<Step> steps;
    for (const auto &block : page.blocks) {
        if (block.key == "not run") {
            EXPECT_GT(block.value.size(), 10U) << "what keeps it from running?";
        } else if (block.key == "run") {
            EXPECT_EQ(block.value, "site");
        } else if (block.language == "sh") {
            add_commands(block, steps);
        } else if (block.language == "console") {
            for (auto &step : read_steps(block.lines, block.line + 1))
                steps.push_back({step.line, step.command + "\n:", step.shown});
        } else {
            expect_no_command(block);
        }
    }
    const std::regex words("(zorvctl(?: [a-z][a-z0-9-]*){1,2})(?: .*)?"); // a verb that there is
    for (const auto &span : page.code_spans)
        if (std::smatch match; std::regex_match(span, match, words))
            steps.push_back({1,
                             match[1].str() + " --no-such-option",
                             {"zorvctl: ...(see: " + match[1].str() + " --help)", "[2]"}});
    return steps;
}

std::vector<std::string> page_names()
{
    std::vector<std::string> names = {"README.md"};
    for (const auto &entry : std::filesystem::directory_iterator(kTree + std::string("docs")))
        if (entry.path().extension() == ".md")
            names.push_back("docs/" + entry.path().filename().string());
    return names;
}

class Manual : public Device, public testing::WithParamInterface<std::string> {};

} // namespace

// Each test of a page costs a device, an access point after set-up; so there is one.
TEST_P(Manual, ShowsWhatIsSo)
{
    kernel_processes();
    const Page page = read_page(GetParam());
    write_pieces(page);
    run_steps(kTree + GetParam(), steps_of(page),
              "source=" ZORV_SOURCE_DIR " build=" ZORV_BUILD_DIR
              "; . $source/tests/docs/reader.sh");
}

// A family that is new has its place in the picture and in the table below it.
TEST(Architecture, ShowsEveryFamily)
{
    const Page page = read_page("docs/architecture.md");
    const auto &picture = page.blocks.at(0).lines;
    for (const auto &entry : std::filesystem::directory_iterator(ZORV_SOURCE_DIR "/include/zorv")) {
        const std::string family = entry.path().stem();
        if (family == "api" || family == "zorv")
            continue;
        EXPECT_THAT(picture, Contains(testing::ContainsRegex("\\b" + family + "\\b")));
        EXPECT_THAT(page.code_spans, Contains(family + ".h"));
    }
}

INSTANTIATE_TEST_SUITE_P(Texts, Manual, testing::ValuesIn(page_names()), [](const auto &page) {
    return std::regex_replace(page.param.substr(page.param.rfind('/') + 1), std::regex("\\W"), "_");
});
